// libqvlogger: timestamped log lines for the dashboard and the platform libraries.
#include "qvlogger.h"

#include "platform_files.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <mutex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

const char* const kLevelNames[] = {"CRIT", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};

std::string envOr(const char* name, const std::string& fallback)
{
    const char* v = zorvik_platform::environment(name);
    return v ? std::string(v) : fallback;
}

// Empty in secure mode: a set-uid or set-gid program logs to the system log only.
std::string userLogDir()
{
    if (const char* d = zorvik_platform::environment("ZORVIK_LOG_DIR"))
        return d;
    if (zorvik_platform::secureMode())
        return std::string();
    std::string state = envOr("XDG_STATE_HOME", "");
    if (state.empty())
        state = envOr("HOME", "/tmp") + "/.local/state";
    return state + "/zorvik";
}

std::string systemLogDir()
{
    return envOr("ZORVIK_SYSTEM_LOG_DIR", "/var/log/zorvik");
}

struct Paths {
    std::string userDir = userLogDir();
    std::string userLog = userDir.empty() ? userDir : userDir + "/dashboard.log";
    std::string systemDir = systemLogDir();
    std::string systemLog = systemDir + "/dashboard.log";
};

const Paths& paths()
{
    static const Paths p;
    return p;
}

// Serialises the writers of this process; flock() serialises the processes.
std::mutex& writeMutex()
{
    static std::mutex m;
    return m;
}

// Appends one complete line. The file is opened by path for every line, so a file that
// was renamed away (rotation) is recreated at the path by the next line. A link or a file
// of another user at the path is not written to.
bool appendLine(const std::string& dir, const std::string& path, const std::string& line)
{
    if (path.empty())
        return false;
    int fd = zorvik_platform::openOwnFile(path, O_WRONLY | O_APPEND | O_CREAT, 0600);
    if (fd < 0 && errno == ENOENT && zorvik_platform::makeDirs(dir))
        fd = zorvik_platform::openOwnFile(path, O_WRONLY | O_APPEND | O_CREAT, 0600);
    if (fd < 0)
        return false;
    ::flock(fd, LOCK_EX);
    const char* p = line.data();
    size_t left = line.size();
    bool ok = true;
    while (left > 0) {
        const ssize_t n = ::write(fd, p, left);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            ok = false;
            break;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    ::flock(fd, LOCK_UN);
    ::close(fd);
    return ok;
}

std::string prefix(int level, const char* component)
{
    struct timeval tv{};
    ::gettimeofday(&tv, nullptr);
    struct tm tmv{};
    ::localtime_r(&tv.tv_sec, &tmv);
    char stamp[64];
    const size_t n = std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tmv);
    std::snprintf(stamp + n, sizeof stamp - n, ".%03ld", static_cast<long>(tv.tv_usec / 1000));
    if (level < QVLOGGER_CRITICAL || level > QVLOGGER_DEBUG)
        level = QVLOGGER_DEBUG;
    std::string s(stamp);
    s += ' ';
    s += kLevelNames[level];
    s += ' ';
    s += component ? component : "-";
    s += ": ";
    return s;
}

// Wide text to UTF-8.
std::string toUtf8(const wchar_t* w, size_t len)
{
    std::string out;
    out.reserve(len);
    for (size_t i = 0; i < len; ++i) {
        auto c = static_cast<uint32_t>(w[i]);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x110000) {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += '?';
        }
    }
    return out;
}

int writeLine(int level, const char* component, const std::string& text)
{
    std::string line = prefix(level, component) + text;
    // One call is one line: embedded line ends stay, the line is always terminated.
    if (line.empty() || line.back() != '\n')
        line += '\n';
    const Paths& p = paths();
    const bool fromDashboard = component && std::strcmp(component, "dashboard") == 0;
    std::lock_guard<std::mutex> lock(writeMutex());
    bool written = false;
    // The platform libraries' lines go to the system log when it can be written.
    if (!fromDashboard)
        written = appendLine(p.systemDir, p.systemLog, line);
    if (!written || !fromDashboard)
        written = appendLine(p.userDir, p.userLog, line) || written;
    return written ? 0 : -1;
}

} // namespace

extern "C" int qvlogger_logw(int level, const char* component, const wchar_t* format, ...)
{
    if (!format)
        return -1;
    std::vector<wchar_t> buf(1024);
    for (;;) {
        va_list ap;
        va_start(ap, format);
        const int n = std::vswprintf(buf.data(), buf.size(), format, ap);
        va_end(ap);
        if (n >= 0)
            return writeLine(level, component, toUtf8(buf.data(), static_cast<size_t>(n)));
        // vswprintf reports -1 both for a short buffer and for a bad conversion.
        if (buf.size() >= (1u << 22))
            return -1;
        buf.resize(buf.size() * 4);
    }
}

extern "C" int qvlogger_log(int level, const char* component, const char* format, ...)
{
    if (!format)
        return -1;
    va_list ap;
    va_start(ap, format);
    va_list ap2;
    va_copy(ap2, ap);
    const int n = std::vsnprintf(nullptr, 0, format, ap);
    va_end(ap);
    if (n < 0) {
        va_end(ap2);
        return -1;
    }
    std::string text(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, ap2);
    va_end(ap2);
    text.resize(static_cast<size_t>(n));
    return writeLine(level, component, text);
}

extern "C" const char* qvlogger_get_param(int param)
{
    switch (param) {
    case QVLOGGER_PARAM_USER_LOG_PATH:
        return paths().userLog.c_str();
    case QVLOGGER_PARAM_SYSTEM_LOG_PATH:
        return paths().systemLog.c_str();
    default:
        return nullptr;
    }
}
