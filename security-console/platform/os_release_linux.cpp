// Linux: the release comes from os-release, the change log is the Linux one.
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

} // namespace OsPlatform
