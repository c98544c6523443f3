#include "pin_counter.h"

#include "cryptoki_log.h"
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
    // A set-uid or set-gid program keeps its counts in a place of the system, which only
    // the privileged can create.
    if (zorvik_platform::secureMode())
        return "/var/lib/zorvik/cryptoki";
    if (const char* own = zorvik_platform::environment("ZORVIK_CRYPTOKI_STATE_DIR"))
        return own;
    const char* xdg = zorvik_platform::environment("XDG_STATE_HOME");
    std::string base;
    if (xdg) {
        base = xdg;
    } else {
        const char* home = zorvik_platform::environment("HOME");
        base = std::string(home ? home : "/tmp") + "/.local/state";
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

int PinCounter::open(int flags) const
{
    bool refused = false;
    const int fd = zorvik_platform::openOwnFile(path_, flags, 0600, &refused);
    if (refused)
        logWarning("the PIN counter " + path_ + " is a link or not our own file; it is left alone");
    return fd;
}

int PinCounter::failures() const
{
    if (!enabled())
        return 0;
    const int fd = open(O_RDONLY);
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
    int fd = open(O_RDWR | O_CREAT);
    if (fd < 0 && errno == ENOENT && zorvik_platform::makeDirs(path_.substr(0, slash)))
        fd = open(O_RDWR | O_CREAT);
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
