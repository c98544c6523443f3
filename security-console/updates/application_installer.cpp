#include "application_installer.h"

ApplicationInstaller::ApplicationInstaller() = default;

bool ApplicationInstaller::install(QWidget* parent, const QString& package)
{
    Q_UNUSED(parent)
    Q_UNUSED(package)
    emit installationError();
    return false;
}
