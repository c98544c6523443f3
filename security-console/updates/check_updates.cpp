#include "check_updates.h"

#include "log.h"
#include "os_platform.h"
#include "web_access.h"
#include "zorvik_build.h"

#include <QMutexLocker>
#include <QStringList>

namespace {
const char* const kBuiltInVersion = ZORVIK_VERSION;
} // namespace

Check_Updates::Check_Updates(QObject* parent) : QThread(parent)
{
    // A user's request that came in after the running check had already reported gets a
    // check of its own.
    connect(this, &QThread::finished, this, [this] {
        if (interactive && !isRunning()) {
            Log::print(Log::DEBUG, "Starting Check SP Updates");
            start();
        }
    });
}

void Check_Updates::Check(bool interactiveCheck)
{
    Log::print(Log::DEBUG, "Check_Updates::Check");
    if (!interactive)
        interactive = interactiveCheck;
    if (isRunning()) {
        Log::print(Log::DEBUG, "Cannot start Check SP Updates. Already running!");
        return;
    }
    Log::print(Log::DEBUG, "Starting Check SP Updates");
    start();
}

bool Check_Updates::updateAvailable() const
{
    QMutexLocker lock(&mutex);
    return updateFound;
}

QString Check_Updates::version() const
{
    QMutexLocker lock(&mutex);
    return offeredVersion;
}

QString Check_Updates::downloadUrl() const
{
    QMutexLocker lock(&mutex);
    return packageUrl;
}

QString Check_Updates::changeLog() const
{
    QMutexLocker lock(&mutex);
    return readme;
}

void Check_Updates::run()
{
    if (getSPUpdateUrl())
        getSPReadme();
    emit SPUpdatesChecked(interactive.exchange(false));
}

bool Check_Updates::getSPUpdateUrl()
{
    Log::print(Log::DEBUG, "Check SP version and updates");
    {
        QMutexLocker lock(&mutex);
        updateFound = false;
    }
    const QString url =
        OsPlatform::updateApiUrl() + "/api/version.txt?type=soft&platform=" + getApiPlatformName() + "&package=pack";
    QString offered;
    QString address;
    if (!getUpdateInfo(url, offered, address)) {
        Log::print(Log::DEBUG, "getSPUpdateUrl error, cannot get version info from API");
        return false;
    }
    const std::optional<bool> isNewer = isNewerVersion(offered, kBuiltInVersion);
    if (!isNewer)
        return false;
    const bool newer = *isNewer;
    {
        QMutexLocker lock(&mutex);
        offeredVersion = offered;
        packageUrl = address;
        updateFound = newer;
    }
    Log::print(Log::DEBUG, "Check SP version and updates finished");
    if (newer)
        Log::print(Log::DEBUG, "Update found");
    return newer;
}

std::optional<bool> Check_Updates::isNewerVersion(const QString& offered, const QString& builtIn)
{
    const QStringList remote = offered.split('.');
    const QStringList local = builtIn.split('.');
    if (remote.size() < 2) {
        Log::print(Log::DEBUG, "getSPUpdateUrl error, invalid version format");
        return std::nullopt;
    }
    if (local.size() < 3) {
        Log::print(Log::DEBUG, "getSPUpdateUrl error, invalid SP version");
        return std::nullopt;
    }
    // Part by part as numbers; a missing part (a two-part version) counts as 0, and so
    // does a part that is not a number.
    for (int i = 0; i < 3; ++i) {
        const int r = remote.value(i).toInt();
        const int l = local.at(i).toInt();
        if (r != l)
            return r > l;
    }
    return false;
}

bool Check_Updates::getUpdateInfo(const QString& url, QString& version, QString& address)
{
    Log::print(Log::DEBUG, "getUpdateInfo from URL: " + url);
    WebAccess web;
    const QString body = web.syncGet(url);
    Log::print(Log::DEBUG, "result = " + body);
    return readVersionReply(body, version, address);
}

bool Check_Updates::readVersionReply(const QString& body, QString& version, QString& address)
{
    if (body.isEmpty()) {
        Log::print(Log::DEBUG, "getUpdateInfo error, cannot get info from API");
        return false;
    }
    const QStringList fields = body.split(';');
    if (fields.size() != 2) {
        Log::print(Log::DEBUG, "getUpdateInfo error, invalid reply format");
        return false;
    }
    version = fields.at(0);
    address = fields.at(1);
    return true;
}

QString Check_Updates::getApiPlatformName()
{
    const QString name = OsPlatform::updatePlatformName();
    Log::print(Log::DEBUG, QString("Version =  %1").arg(name));
    return name;
}

void Check_Updates::getSPReadme()
{
    WebAccess web;
    const QString text = web.syncGet(OsPlatform::changeLogUrl() + OsPlatform::changeLogPath());
    QMutexLocker lock(&mutex);
    readme = text;
}
