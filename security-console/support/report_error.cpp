#include "report_error.h"

#include "log.h"
#include "modal_seam.h"

#include <QCoreApplication>
#include <QMessageBox>

#include <cstdlib>

void reportError(const QString& text)
{
    Q_UNUSED(text)
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
