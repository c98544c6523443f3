#include "platform_files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zorvik_platform {

bool secureMode()
{
    return ::getauxval(AT_SECURE) != 0;
}

const char* environment(const char* name)
{
    const char* v = ::secure_getenv(name);
    return v && *v ? v : nullptr;
}

std::string userConfigDir()
{
    if (const char* x = environment("XDG_CONFIG_HOME"))
        return std::string(x) + "/zorvik";
    if (const char* h = environment("HOME"))
        return std::string(h) + "/.config/zorvik";
    return std::string();
}

int openOwnFile(const std::string& path, int flags, unsigned mode, bool* refused)
{
    if (refused)
        *refused = false;
    const int fd = ::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, static_cast<mode_t>(mode));
    if (fd < 0) {
        // A symbolic link where our file should be.
        if (errno == ELOOP && refused)
            *refused = true;
        return -1;
    }
    struct stat st{};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink != 1 || st.st_uid != ::geteuid()) {
        ::close(fd);
        if (refused)
            *refused = true;
        errno = EPERM;
        return -1;
    }
    return fd;
}

bool makeDirs(const std::string& dir)
{
    if (dir.empty())
        return false;
    struct stat st{};
    if (::stat(dir.c_str(), &st) == 0)
        return S_ISDIR(st.st_mode);
    const auto slash = dir.find_last_of('/');
    if (slash != std::string::npos && slash > 0 && !makeDirs(dir.substr(0, slash)))
        return false;
    return ::mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST;
}

std::vector<std::string> readLines(const std::string& path)
{
    std::vector<std::string> lines;
    FILE* f = std::fopen(path.c_str(), "re");
    if (!f)
        return lines;
    std::string line;
    int c;
    while ((c = std::fgetc(f)) != EOF) {
        if (c == '\n') {
            lines.push_back(line);
            line.clear();
        } else {
            line += static_cast<char>(c);
        }
    }
    if (!line.empty())
        lines.push_back(line);
    std::fclose(f);
    return lines;
}

bool writeFileAtomically(const std::string& path, const std::string& content)
{
    const std::string dir = path.substr(0, path.find_last_of('/'));
    if (!makeDirs(dir))
        return false;
    std::string tmpl = path + ".XXXXXX";
    const int fd = ::mkostemp(tmpl.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    const char* p = content.data();
    size_t left = content.size();
    bool ok = true;
    while (left > 0) {
        const ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    ok = ok && ::fchmod(fd, 0600) == 0 && ::fsync(fd) == 0;
    ok = (::close(fd) == 0) && ok;
    if (ok && ::rename(tmpl.c_str(), path.c_str()) == 0)
        return true;
    ::unlink(tmpl.c_str());
    return false;
}

} // namespace zorvik_platform
