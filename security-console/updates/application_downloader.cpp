#include "application_downloader.h"

#include "log.h"
#include "modal_seam.h"

#include <QCoreApplication>
#include <QDir>
#include <QMessageBox>

const QString ApplicationDownloader::tempFolderName = "DashboardDownloads";

ApplicationDownloader::ApplicationDownloader(QWidget* parent) : QProgressDialog(parent), owner(parent)
{
    // The dialog ends only by the download's end, its error or Cancel; reaching 100 %
    // must not close it before the last bytes are written.
    setAutoReset(false);
    setAutoClose(false);
    connect(this, &QProgressDialog::canceled, this, &ApplicationDownloader::slotCanceled);
    connect(&webAccess, &WebAccess::progress, this, &ApplicationDownloader::downloadProgress);
    connect(&webAccess, &WebAccess::downloadCompleted, this, &ApplicationDownloader::downloadFinished);
    connect(&webAccess, &WebAccess::error, this, &ApplicationDownloader::downloadError);
}

QString ApplicationDownloader::downloadFolder()
{
    return QDir::homePath() + QDir::separator() + "Downloads";
}

bool ApplicationDownloader::download(const QString& url, const QString& title, const QString& label)
{
    Log::print(Log::DEBUG, "Starting download with URL " + url);
    setWindowFlags(Qt::Window | Qt::MSWindowsFixedSizeDialogHint | Qt::WindowTitleHint | Qt::CustomizeWindowHint |
                   Qt::WindowCloseButtonHint);
    setWindowTitle(title);
    setLabelText(label);
    // A busy bar until the server's announced length gives percentages.
    setRange(0, 0);
    setValue(0);
    setMinimumSize(450, 110);
    QDir(QDir::tempPath()).mkpath(tempFolderName);
    // A new account may have no Downloads folder yet.
    QDir().mkpath(downloadFolder());

    if (!webAccess.download(url, downloadFolder()))
        return false;
    started = true;
    const int code = ModalSeam::exec(this);
    Log::print(Log::DEBUG, QString("Donwload dialog code: %1").arg(code));
    return code == QDialog::Accepted;
}

void ApplicationDownloader::downloadProgress(int percent)
{
    if (maximum() == 0)
        setRange(0, 100);
    setValue(percent);
}

void ApplicationDownloader::downloadFinished(const QString& name)
{
    Log::print(Log::DEBUG, QString("Donwloading %1 completed.").arg(name));
    fileName = downloadFolder() + QDir::separator() + name;
    accept();
}

void ApplicationDownloader::downloadError(const QString& message)
{
    Log::print(Log::DEBUG, QString("Donwload error: %1").arg(message));
    // What arrived before the error is no package: it goes with the failed download. (A
    // file that could not even be created is not ours to remove.)
    if (started)
        webAccess.abortDownload();
    cancel();
    QMessageBox box(QMessageBox::Warning, QCoreApplication::translate("Window Messages", "Download"), message,
                    QMessageBox::Ok, owner);
    ModalSeam::exec(&box);
}

void ApplicationDownloader::slotCanceled()
{
    Log::print(Log::DEBUG, "ApplicationDownloader::slotCanceled");
    webAccess.abortDownload();
    cancel();
}
