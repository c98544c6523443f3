#pragma once

#include <QByteArray>
#include <QString>

// The Mac OS Roman single-byte encoding, in which the proxy preferences are exchanged with
// the transport components. Bytes 0x00-0x7F are ASCII; every byte has a character, but
// most Unicode characters have no byte.
namespace MacRoman {

// The character of one byte.
QChar toUnicode(unsigned char byte);
QString toUnicode(const QByteArray& bytes);

// Converts without substitution: false (and `out` untouched) when any character has no
// Mac Roman byte.
bool fromUnicode(const QString& text, QByteArray* out);

} // namespace MacRoman
