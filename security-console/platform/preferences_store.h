#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

#include <optional>

// The per-user application preferences of one domain (for example "com.zorvik.qvtransport"),
// where the operating system keeps them: CoreFoundation preferences (current user, any host)
// on macOS; on Linux the file "<configDir>/<domain>.ini", one "key=value" line per key.
//
// Reads always go to the storage, so a value written by another process is seen at once.
// Writes are staged with setString/setBool/remove and made durable by synchronize(). On
// Linux synchronize() writes a complete new file beside the old one and renames it over
// it, so a reader, or a crash in the middle of a write, never meets half a file.
class PreferencesStore
{
public:
    explicit PreferencesStore(const QString& domain);

    QString domain() const { return domainName; }

    // The value of `key`, or nothing when it is not stored. A boolean is stored as true or
    // false (also accepted: yes/no, 1/0); any other text is not a boolean.
    std::optional<QString> stringValue(const QString& key) const;
    std::optional<bool> boolValue(const QString& key) const;

    void setString(const QString& key, const QString& value);
    void setBool(const QString& key, bool value);
    void remove(const QString& key);

    // Writes the staged changes, keeping every other key of the domain. True when they are
    // stored (also when nothing was staged); on failure the stored values are unchanged and
    // the changes stay staged.
    bool synchronize();

    // The file behind the domain on Linux; empty on macOS.
    QString filePath() const;

private:
    // The storage back end: one implementation per operating system.
    std::optional<QVariant> readValue(const QString& key) const;
    bool writeValues(const QMap<QString, QVariant>& changes);

    QString domainName;
    // Staged changes; an invalid QVariant removes the key.
    QMap<QString, QVariant> pending;
};
