#include "secret_bytes.h"

#include <QInputDialog>
#include <QLineEdit>
#include <QString>

#include <openssl/crypto.h>

#include <cstring>

namespace {

// Characters a prompt holds without moving its text.
constexpr int kRoom = 256;

// Overwrites a string's characters where they are stored, in every string that shares them.
// QString::fill() would detach and wipe a fresh copy instead.
void wipeInPlace(const QString& text)
{
    const QString::DataPtr d = const_cast<QString&>(text).data_ptr();
    if (text.isEmpty() || d->ref.isStatic() || d->alloc == 0)
        return; // literals and raw data: nothing of ours to wipe
    OPENSSL_cleanse(const_cast<QChar*>(text.constData()), static_cast<size_t>(text.size()) * sizeof(QChar));
}

} // namespace

SecretBytes::SecretBytes(SecretBytes&& other) noexcept : bytes_(std::move(other.bytes_)), size_(other.size_)
{
    other.size_ = 0;
}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept
{
    if (this != &other) {
        wipe();
        bytes_ = std::move(other.bytes_);
        size_ = other.size_;
        other.size_ = 0;
    }
    return *this;
}

void SecretBytes::wipe()
{
    if (bytes_)
        OPENSSL_cleanse(bytes_.get(), size_);
    bytes_.reset();
    size_ = 0;
}

SecretBytes SecretBytes::fromText(const QString& text)
{
    SecretBytes secret;
    QByteArray utf8 = text.toUtf8();
    secret.size_ = static_cast<std::size_t>(utf8.size());
    secret.bytes_.reset(new char[secret.size_ + 1]);
    std::memcpy(secret.bytes_.get(), utf8.constData(), secret.size_);
    secret.bytes_[secret.size_] = '\0';
    if (!utf8.isEmpty())
        OPENSSL_cleanse(utf8.data(), static_cast<size_t>(utf8.size()));
    return secret;
}

void SecretBytes::prepare(QInputDialog* dialog)
{
    auto* edit = dialog->findChild<QLineEdit*>();
    if (!edit)
        return;
    // The dialog mirrors the line edit's text on each change; sharing the buffer makes the
    // next key copy it. We read the line edit itself instead.
    QObject::disconnect(edit, SIGNAL(textChanged(QString)), dialog, nullptr);
    // Room for any PIN or password up front, so typing never moves the text.
    QString room;
    room.reserve(kRoom);
    edit->setText(room);
}

SecretBytes SecretBytes::takeFrom(QInputDialog* dialog)
{
    auto* edit = dialog->findChild<QLineEdit*>();
    const QString typed = edit ? edit->text() : dialog->textValue();
    SecretBytes secret = fromText(typed);
    // The dialog keeps the text it last saw, the line edit its own; both usually share one
    // buffer with `typed`, but wipe each in case they do not.
    wipeInPlace(typed);
    if (edit) {
        wipeInPlace(edit->text());
        edit->clear();
    }
    wipeInPlace(dialog->textValue());
    dialog->setTextValue(QString());
    return secret;
}
