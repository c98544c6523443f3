#include "mac_roman.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

// Characters of the bytes 0x80-0xFF.
const char16_t kHighHalf[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, // 80
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8, // 88
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, // 90
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, // 98
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF, // A0
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, // A8
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211, // B0
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, // B8
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, // C0
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153, // C8
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, // D0
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, // D8
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1, // E0
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, // E8
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC, // F0
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7, // F8
};

using ReverseEntry = std::pair<char16_t, unsigned char>;

// The high half sorted by character, for the way back.
const std::array<ReverseEntry, 128>& reverseTable()
{
    static const std::array<ReverseEntry, 128> table = [] {
        std::array<ReverseEntry, 128> t{};
        for (int i = 0; i < 128; ++i)
            t[i] = {kHighHalf[i], static_cast<unsigned char>(0x80 + i)};
        std::sort(t.begin(), t.end());
        return t;
    }();
    return table;
}

bool toByte(char16_t c, char* byte)
{
    if (c < 0x80) {
        *byte = static_cast<char>(c);
        return true;
    }
    const auto& table = reverseTable();
    const auto it = std::lower_bound(table.begin(), table.end(), ReverseEntry{c, 0});
    if (it == table.end() || it->first != c)
        return false;
    *byte = static_cast<char>(it->second);
    return true;
}

} // namespace

namespace MacRoman {

QChar toUnicode(unsigned char byte)
{
    return byte < 0x80 ? QChar(byte) : QChar(kHighHalf[byte - 0x80]);
}

QString toUnicode(const QByteArray& bytes)
{
    QString text;
    text.reserve(bytes.size());
    for (const char b : bytes)
        text.append(toUnicode(static_cast<unsigned char>(b)));
    return text;
}

bool fromUnicode(const QString& text, QByteArray* out)
{
    QByteArray bytes(text.size(), Qt::Uninitialized);
    for (int i = 0; i < text.size(); ++i) {
        if (!toByte(text.at(i).unicode(), bytes.data() + i))
            return false;
    }
    *out = bytes;
    return true;
}

} // namespace MacRoman
