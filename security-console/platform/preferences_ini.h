#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include <utility>

// The file format of PreferencesStore on Linux: "key=value" lines under one "[domain]"
// header. Values are kept on one line: backslash and control characters are escaped.
namespace PreferencesIni {

using Entries = QVector<std::pair<QString, QString>>;

// The entries of a file's contents, in file order. Blank lines, comments (";" or "#") and
// section headers are skipped, as are lines without a key before their first "=". The key is
// trimmed, the value is everything after the "=", blanks included. A key given twice keeps
// its first place and its last value.
Entries parse(const QByteArray& content);

// The file's contents for `entries`, which parse() reads back as they are.
QByteArray format(const QString& domain, const Entries& entries);

} // namespace PreferencesIni
