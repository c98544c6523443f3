// The answers of the OS seam that only Linux gives: the platform names, the release the
// update API knows (from os-release) and its change log.
#include "os_platform.h"

#include <QFile>

namespace OsPlatform {

QString updatePlatformName()
{
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            return linuxPlatformName(file.readAll());
    }
    return linuxPlatformName(QByteArray());
}

QString changeLogPath()
{
    return "/changelogs/pack.linux.txt";
}

QString reportPlatform()
{
    return "Linux";
}

} // namespace OsPlatform
