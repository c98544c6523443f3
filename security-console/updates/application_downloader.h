#pragma once

#include "web_access.h"

#include <QProgressDialog>
#include <QString>

// The progress dialog of a package download: the bar follows the download, Cancel stops it
// and deletes the partial file. The package goes to the user's "Downloads" folder under
// the last part of its address.
class ApplicationDownloader : public QProgressDialog
{
    Q_OBJECT
public:
    // Created in the system temporary directory by every download.
    static const QString tempFolderName;

    explicit ApplicationDownloader(QWidget* parent);

    // Downloads `url` behind the dialog; true only when the whole file arrived.
    bool download(const QString& url, const QString& title, const QString& label);
    // The full path of the downloaded package (after a successful download).
    QString downloadedFile() const { return fileName; }
    // Home + "/Downloads".
    static QString downloadFolder();

public slots:
    void downloadProgress(int percent);
    void downloadError(const QString& message);
    void downloadFinished(const QString& name);
    void slotCanceled();

private:
    QWidget* owner;
    WebAccess webAccess;
    bool started = false;
    QString fileName;
};
