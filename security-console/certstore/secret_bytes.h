#pragma once

#include <QMetaType>

#include <cstddef>
#include <memory>

class QInputDialog;
class QString;

// A PIN or a file password as the module and OpenSSL take it: UTF-8 bytes followed by a NUL,
// wiped when the object goes. Move-only, so there is one copy; threads share it through a
// SecretPtr, and the bytes are wiped when the last holder lets go.
class SecretBytes
{
public:
    SecretBytes() = default;
    ~SecretBytes() { wipe(); }
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    static SecretBytes fromText(const QString& text);
    // Readies an input dialog, before it runs, to keep what is typed in one buffer of its line
    // edit, so that takeFrom() can wipe it: otherwise every key typed leaves a copy of the
    // text so far behind.
    static void prepare(QInputDialog* dialog);
    // Takes what was typed into a prepared input dialog and wipes the dialog's copies of it.
    static SecretBytes takeFrom(QInputDialog* dialog);

    const char* data() const { return bytes_ ? bytes_.get() : ""; }
    unsigned char* udata() const { return reinterpret_cast<unsigned char*>(bytes_.get()); }
    std::size_t size() const { return size_; }
    bool isEmpty() const { return size_ == 0; }

private:
    void wipe();

    std::unique_ptr<char[]> bytes_;
    std::size_t size_ = 0;
};

// How a secret travels through queued signals: shared, never copied.
using SecretPtr = std::shared_ptr<const SecretBytes>;

inline SecretPtr shareSecret(SecretBytes&& secret)
{
    return std::make_shared<const SecretBytes>(std::move(secret));
}

Q_DECLARE_METATYPE(SecretPtr)
