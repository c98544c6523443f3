#include "shared_segment.h"

#include "os_platform.h"

#include <QFile>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int openFile(const QString& path, int flags)
{
    return ::open(QFile::encodeName(path).constData(), flags | O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0600);
}

// Only a regular file of this user, never one planted by someone else.
bool isOwnFile(int fd)
{
    struct stat st = {};
    return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::getuid();
}

void closeFd(int& fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

} // namespace

SharedSegment::SharedSegment(const QString& name)
{
    const QString dir = OsPlatform::runtimeDir();
    if (!dir.isEmpty())
        path = dir + "/" + name;
}

SharedSegment::~SharedSegment()
{
    detach();
}

bool SharedSegment::map(int fd, int size)
{
    void* p = ::mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED)
        return false;
    bytes = static_cast<char*>(p);
    length = size;
    dataFd = fd;
    return true;
}

bool SharedSegment::create(int size)
{
    if (path.isEmpty() || isAttached() || size <= 0)
        return false;
    ownerFd = openFile(path + ".owner", O_CREAT);
    if (ownerFd < 0 || !isOwnFile(ownerFd) || ::flock(ownerFd, LOCK_EX | LOCK_NB) != 0) {
        closeFd(ownerFd);
        return false;
    }
    int fd = openFile(path, O_CREAT);
    if (fd < 0 || !isOwnFile(fd) || ::ftruncate(fd, size) != 0 || !map(fd, size)) {
        closeFd(fd);
        closeFd(ownerFd);
        return false;
    }
    if (lock()) {
        std::memset(bytes, 0, static_cast<size_t>(size));
        unlock();
    }
    return true;
}

bool SharedSegment::attach()
{
    if (path.isEmpty() || isAttached())
        return false;
    // The creator holds the owner file locked; a lock this process can take means no one does.
    int owner = openFile(path + ".owner", 0);
    const bool held = owner >= 0 && isOwnFile(owner) && ::flock(owner, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    closeFd(owner);
    if (!held)
        return false;
    int fd = openFile(path, 0);
    struct stat st = {};
    if (fd < 0 || !isOwnFile(fd) || ::fstat(fd, &st) != 0 || st.st_size <= 0 ||
        !map(fd, static_cast<int>(st.st_size))) {
        closeFd(fd);
        return false;
    }
    return true;
}

void SharedSegment::detach()
{
    if (bytes)
        ::munmap(bytes, static_cast<size_t>(length));
    bytes = nullptr;
    length = 0;
    closeFd(dataFd);
    closeFd(ownerFd); // lets go of the segment when this process created it
}

bool SharedSegment::lock()
{
    return dataFd >= 0 && ::flock(dataFd, LOCK_EX) == 0;
}

void SharedSegment::unlock()
{
    if (dataFd >= 0)
        ::flock(dataFd, LOCK_UN);
}
