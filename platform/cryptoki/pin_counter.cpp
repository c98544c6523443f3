#include "pin_counter.h"

#include "platform_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace zcryptoki {

namespace {

int readCount(int fd)
{
    char buf[32] = {};
    if (::lseek(fd, 0, SEEK_SET) < 0)
        return 0;
    const ssize_t n = ::read(fd, buf, sizeof buf - 1);
    if (n <= 0)
        return 0;
    const long v = std::strtol(buf, nullptr, 10);
    return v < 0 ? 0 : static_cast<int>(v);
}

} // namespace

std::string stateDirectory()
{
    if (const char* own = std::getenv("ZORVIK_CRYPTOKI_STATE_DIR"); own && *own)
        return own;
    const char* xdg = std::getenv("XDG_STATE_HOME");
    std::string base;
    if (xdg && *xdg) {
        base = xdg;
    } else {
        const char* home = std::getenv("HOME");
        base = std::string(home && *home ? home : "/tmp") + "/.local/state";
    }
    return base + "/zorvik/cryptoki";
}

void PinCounter::configure(const std::string& tokenKey, int limit)
{
    limit_ = limit;
    std::string safe;
    for (char c : tokenKey) {
        if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '_')
            safe += c;
    }
    path_ = safe.empty() ? std::string() : stateDirectory() + "/pin-failures-" + safe;
}

int PinCounter::failures() const
{
    if (!enabled())
        return 0;
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    ::flock(fd, LOCK_SH);
    const int n = readCount(fd);
    ::close(fd);
    return n;
}

int PinCounter::update(int (*change)(int))
{
    if (!enabled())
        return 0;
    const auto slash = path_.find_last_of('/');
    int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0 && errno == ENOENT && zorvik_platform::makeDirs(path_.substr(0, slash)))
        fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return 0;
    ::flock(fd, LOCK_EX);
    const int n = change(readCount(fd));
    const std::string text = std::to_string(n) + "\n";
    if (::ftruncate(fd, 0) == 0 && ::lseek(fd, 0, SEEK_SET) == 0) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        (void)written;
    }
    ::close(fd);
    return n;
}

int PinCounter::recordFailure()
{
    return update([](int n) { return n + 1; });
}

void PinCounter::reset()
{
    if (enabled() && failures() != 0)
        update([](int) { return 0; });
}

} // namespace zcryptoki
