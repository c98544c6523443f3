#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>

// Builds "<dir>/<name>_<version>_<arch>.deb" with dpkg-deb: a control file and, to give a
// download something to show, `payload` bytes of data. Empty text when it fails.
inline QString makeDebianPackage(const QString& dir, const QString& name, const QString& version,
                                 const QString& arch, int payload = 0)
{
    const QString root = dir + "/" + name + "-" + version + "-" + arch;
    QDir().mkpath(root + "/DEBIAN");
    QDir().mkpath(root + "/usr/share/" + name);
    QFile control(root + "/DEBIAN/control");
    if (!control.open(QIODevice::WriteOnly))
        return QString();
    control.write(QString("Package: %1\nVersion: %2\nArchitecture: %3\nMaintainer: Zorvik <support@zorvik.test>\n"
                          "Description: test package\n")
                      .arg(name, version, arch)
                      .toUtf8());
    control.close();
    QFile data(root + "/usr/share/" + name + "/payload");
    if (!data.open(QIODevice::WriteOnly))
        return QString();
    QByteArray bytes(payload, '\0');
    for (int i = 0; i < payload; ++i)
        bytes[i] = static_cast<char>((i * 7919) >> 3);
    data.write(bytes);
    data.close();
    const QString deb = QString("%1/%2_%3_%4.deb").arg(dir, name, version, arch);
    QProcess build;
    build.start("dpkg-deb", {"--root-owner-group", "-Znone", "--build", root, deb});
    if (!build.waitForFinished(60000) || build.exitCode() != 0)
        return QString();
    return deb;
}
