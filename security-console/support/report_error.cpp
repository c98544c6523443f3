#include "report_error.h"

#include "log.h"
#include "modal_seam.h"
#include "os_platform.h"
#include "system_configuration.h"
#include "web_access.h"

#include <QCoreApplication>
#include <QMap>
#include <QMessageBox>

#include <cstdlib>

void reportError(const QString& text)
{
    const QString sysconfig = systemConfiguration();
    const QString tail = Log::lastLog(131072);
    const QMap<QString, QString> fields{{"application", "Dashboard"},
                                        {"platform", OsPlatform::reportPlatform()},
                                        {"sysconfig", sysconfig},
                                        {"title", "Critical error: " + text},
                                        {"version", "3.4.375"}};
    WebAccess web;
    // The program is on its way down: a service that does not answer must not hold it.
    web.setPostTimeout(reportTimeoutMs);
    web.syncPost(OsPlatform::supportUrl() + "/api/report", fields, "crash.log", tail.toUtf8());
}

void criticalMessage(const QString& text)
{
    Log::print(Log::ALERT, text);
    reportError(text);
    QMessageBox box(QMessageBox::Critical,
                    QCoreApplication::translate("Dialog titles", "%1 Error").arg("Zorvik Dashboard"),
                    QCoreApplication::translate("Warning messages",
                                                "The application encountered a critical problem and will be closed "
                                                "immediately.\nPlease contact Zorvik support if the problem remains."),
                    QMessageBox::Ok);
    ModalSeam::exec(&box);
    std::_Exit(1);
}
