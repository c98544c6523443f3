#include "check_updates.h"

#include "log.h"

Check_Updates::Check_Updates(QObject* parent) : QThread(parent) {}

void Check_Updates::Check(bool interactiveCheck)
{
    if (isRunning()) {
        Log::print(Log::DEBUG, "Update check already running");
        return;
    }
    interactive = interactiveCheck;
    start();
}

void Check_Updates::run()
{
    const bool wasInteractive = interactive;
    interactive = false;
    emit SPUpdatesChecked(wasInteractive);
}
