#pragma once

#include <QMutex>
#include <QString>
#include <QThread>

#include <atomic>
#include <optional>

// Asks the update API whether a newer Security Pack than the one built in is published for
// this operating-system release and, when there is one, fetches its change log. One check
// is one run of the thread; checks never overlap.
class Check_Updates : public QThread
{
    Q_OBJECT
public:
    explicit Check_Updates(QObject* parent = nullptr);

    // Starts a check unless one is running. An interactive request made while one runs is
    // remembered, so the running check (or, if it has just reported, one more) reports to
    // the user.
    void Check(bool interactive);

    // What the checks found; callable from any thread. The version and download address
    // are those of the last valid reply, the change log that of the last check that found
    // an update.
    bool updateAvailable() const;
    QString version() const;
    QString downloadUrl() const;
    QString changeLog() const;

    // The steps of a check, run in the checker's thread.
    bool getSPUpdateUrl();
    bool getUpdateInfo(const QString& url, QString& version, QString& address);
    // The version reply "<version>;<package address>" (the text of the answer); false for
    // an empty or malformed reply.
    static bool readVersionReply(const QString& body, QString& version, QString& address);
    // Whether `offered` is newer than `builtIn`, compared part by part as numbers over the
    // first three parts; nothing when either is not a version.
    static std::optional<bool> isNewerVersion(const QString& offered, const QString& builtIn);
    QString getApiPlatformName();
    void getSPReadme();

signals:
    void SPUpdatesChecked(bool interactive);

protected:
    void run() override;

private:
    mutable QMutex mutex;
    bool updateFound = false;
    QString offeredVersion;
    QString packageUrl;
    QString readme;
    std::atomic<bool> interactive{false};
};
