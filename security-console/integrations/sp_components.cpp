#include "sp_components.h"

#include "log.h"

SP_Components::SP_Components(QObject* parent) : QThread(parent) {}

void SP_Components::Update()
{
    Log::print(Log::DEBUG, "SP_Components::Update()");
    if (isRunning()) {
        Log::print(Log::DEBUG, "Cannot start Components Updater. Already running!");
        return;
    }
    Log::print(Log::DEBUG, "Starting Components Updater.");
    start();
}

void SP_Components::run()
{
    thunderbirdCheckRequested = false;
    emit componentsUpdated();
}

void SP_Components::runVaultry() {}

void SP_Components::runRelayon() {}

void SP_Components::configureOpenVPN(QWidget* parent)
{
    Q_UNUSED(parent)
}

QString SP_Components::getChromePath()
{
    return QString();
}
