#pragma once

#include <QString>

// A small named memory segment shared by the processes of one user: the single-instance
// channel. It lives in files of the user's own run-time directory (OsPlatform::runtimeDir),
// so no other user can create, hold or read it:
//   <name>        the bytes, mapped by every process attached, and the cross-process lock;
//   <name>.owner  held locked by the process that created the segment, for its whole life.
// The segment exists while its creator holds it: when the creator detaches or dies (the
// system drops its lock), attach() fails and the next create() succeeds. The lock is the
// creating process's own: a child it forked, even one left behind when it crashed, does not
// keep the segment alive.
class SharedSegment
{
public:
    explicit SharedSegment(const QString& name);
    ~SharedSegment();

    SharedSegment(const SharedSegment&) = delete;
    SharedSegment& operator=(const SharedSegment&) = delete;

    // Creates the segment, zero-filled, and holds it; false when a live process holds it
    // already or the files cannot be made.
    bool create(int size);
    // Maps a segment that a live process holds; false otherwise.
    bool attach();
    void detach();
    bool isAttached() const { return bytes != nullptr; }

    char* data() { return bytes; }
    const char* constData() const { return bytes; }
    int size() const { return length; }

    // Cross-process lock around reads and writes of the bytes.
    bool lock();
    void unlock();

private:
    bool map(int fd, int size);

    QString path;
    int dataFd = -1;
    int ownerFd = -1;
    char* bytes = nullptr;
    int length = 0;
};
