#include "shared_segment.h"

#include "os_platform.h"

#include <QFile>
#include <QMutex>
#include <QSet>

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

// The claim on a segment is a POSIX record lock on its owner file. Such a lock belongs to the
// process, not to the open file: a child forked by the creator does not hold it (Qt's forkfd
// child waits for its parent before running its program, and waits for good when the parent
// is killed in between), and the system drops it when the creator ends. The other side of
// that: closing any descriptor of the file in the creating process drops the claim, so this
// process never opens the owner file of a segment it holds.
QMutex heldLock;
QSet<QString> heldHere;

bool heldByThisProcess(const QString& path)
{
    QMutexLocker locker(&heldLock);
    return heldHere.contains(path);
}

struct flock wholeFile(short type)
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    return range; // from offset 0 to the end, however long
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
    if (path.isEmpty() || isAttached() || size <= 0 || heldByThisProcess(path))
        return false;
    ownerFd = openFile(path + ".owner", O_CREAT);
    struct flock claim = wholeFile(F_WRLCK);
    if (ownerFd < 0 || !isOwnFile(ownerFd) || ::fcntl(ownerFd, F_SETLK, &claim) != 0) {
        closeFd(ownerFd);
        return false;
    }
    int fd = openFile(path, O_CREAT);
    if (fd < 0 || !isOwnFile(fd) || ::ftruncate(fd, size) != 0 || !map(fd, size)) {
        closeFd(fd);
        closeFd(ownerFd);
        return false;
    }
    {
        QMutexLocker locker(&heldLock);
        heldHere.insert(path);
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
    // The creator holds a lock on the owner file; when none is there, no one holds the segment.
    bool held = heldByThisProcess(path);
    if (!held) {
        int owner = openFile(path + ".owner", 0);
        struct flock probe = wholeFile(F_WRLCK);
        held = owner >= 0 && isOwnFile(owner) && ::fcntl(owner, F_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
        closeFd(owner);
    }
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
    if (ownerFd >= 0) { // this process created the segment: closing the file lets go of it
        QMutexLocker locker(&heldLock);
        heldHere.remove(path);
        closeFd(ownerFd);
    }
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
