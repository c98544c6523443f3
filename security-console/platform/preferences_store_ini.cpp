// Linux back end of PreferencesStore: one INI file per domain under the configuration
// directory.
#include "os_platform.h"
#include "preferences_ini.h"
#include "preferences_store.h"

#include <QDir>
#include <QFile>
#include <QLockFile>
#include <QSaveFile>
#include <QVector>

#include <utility>

namespace {

using PreferencesIni::Entries;

QString escape(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (const QChar c : value) {
        switch (c.unicode()) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c.unicode() < 0x20)
                out += QString("\\x%1").arg(c.unicode(), 2, 16, QChar('0'));
            else
                out += c;
        }
    }
    return out;
}

QString unescape(const QString& value)
{
    QString out;
    out.reserve(value.size());
    for (int i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c != '\\' || i + 1 == value.size()) {
            out += c;
            continue;
        }
        const QChar next = value.at(++i);
        if (next == 'n') {
            out += '\n';
        } else if (next == 'r') {
            out += '\r';
        } else if (next == 't') {
            out += '\t';
        } else if (next == 'x' && i + 2 < value.size()) {
            bool ok = false;
            const ushort code = value.mid(i + 1, 2).toUShort(&ok, 16);
            if (ok) {
                out += QChar(code);
                i += 2;
            } else {
                out += next;
            }
        } else {
            out += next;
        }
    }
    return out;
}

Entries readEntries(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Entries();
    return PreferencesIni::parse(file.readAll());
}

} // namespace

PreferencesIni::Entries PreferencesIni::parse(const QByteArray& content)
{
    Entries entries;
    const QList<QByteArray> lines = content.split('\n');
    for (QByteArray line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
        const QString text = QString::fromUtf8(line);
        const QString head = text.trimmed();
        if (head.isEmpty() || head.startsWith(';') || head.startsWith('#') || head.startsWith('['))
            continue;
        const int eq = text.indexOf('=');
        const QString key = text.left(qMax(eq, 0)).trimmed();
        // A line without a key (" = x") would be written back as "=x", which is not read.
        if (key.isEmpty())
            continue;
        const QString value = unescape(text.mid(eq + 1));
        bool replaced = false;
        for (auto& entry : entries) {
            if (entry.first == key) {
                entry.second = value;
                replaced = true;
            }
        }
        if (!replaced)
            entries.append({key, value});
    }
    return entries;
}

QByteArray PreferencesIni::format(const QString& domain, const Entries& entries)
{
    QByteArray content = "; Preferences of " + domain.toUtf8() + "\n[" + domain.toUtf8() + "]\n";
    for (const auto& entry : entries)
        content += entry.first.toUtf8() + '=' + escape(entry.second).toUtf8() + '\n';
    return content;
}

QString PreferencesStore::filePath() const
{
    return OsPlatform::configDir() + "/" + domainName + ".ini";
}

std::optional<QVariant> PreferencesStore::readValue(const QString& key) const
{
    for (const auto& entry : readEntries(filePath())) {
        if (entry.first == key)
            return QVariant(entry.second);
    }
    return std::nullopt;
}

bool PreferencesStore::writeValues(const QMap<QString, QVariant>& changes)
{
    const QString path = filePath();
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;

    // Writers of other processes wait for each other, so no change is lost between the
    // read and the rename. Readers need no lock: the rename swaps whole files.
    QLockFile lock(path + ".lock");
    lock.setStaleLockTime(10000);
    if (!lock.tryLock(5000))
        return false;

    Entries entries = readEntries(path);
    for (auto it = changes.constBegin(); it != changes.constEnd(); ++it) {
        const bool removing = !it.value().isValid();
        const QString text =
            it.value().type() == QVariant::Bool ? (it.value().toBool() ? "true" : "false") : it.value().toString();
        bool found = false;
        for (int i = 0; i < entries.size(); ++i) {
            if (entries[i].first != it.key())
                continue;
            found = true;
            if (removing)
                entries.remove(i--);
            else
                entries[i].second = text;
        }
        if (!found && !removing)
            entries.append({it.key(), text});
    }

    const QByteArray content = PreferencesIni::format(domainName, entries);

    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // An unfinished QSaveFile is discarded when it goes out of scope; the old file stays.
    if (file.write(content) != content.size())
        return false;
    return file.commit();
}
