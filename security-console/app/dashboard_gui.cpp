#include "dashboard_gui.h"

#include "dashboard_window.h"
#include "information_dialog.h"
#include "log.h"
#include "modal_seam.h"
#include "openvpn_dialog.h"
#include "os_platform.h"
#include "web_access.h"
#include "zorvik_build.h"

#include <QGuiApplication>
#include <QLibrary>
#include <QLibraryInfo>
#include <QMessageBox>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QTranslator>

const char* const DashboardGUI::appVersion = ZORVIK_VERSION;
const char* const DashboardGUI::productName = "Zorvik Dashboard";

namespace {
// Installs the program's translation for the user's locale, and Qt's own for the standard
// buttons and dialogs. English needs neither.
void installTranslations(QCoreApplication* app)
{
    const QLocale locale;
    const QString dir = OsPlatform::translationsDir();
    auto* own = new QTranslator(app);
    if (own->load(locale, "zorvik-dashboard", "_", dir)) {
        app->installTranslator(own);
        Log::print(Log::DEBUG, QString("Translations: %1").arg(own->filePath()));
    } else {
        Log::print(Log::DEBUG, QString("Translations: none for %1 in %2").arg(locale.name(), dir));
        delete own;
    }
    auto* qt = new QTranslator(app);
    if (qt->load(locale, "qtbase", "_", QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        app->installTranslator(qt);
    else
        delete qt;
}
} // namespace

DashboardGUI::DashboardGUI(int& argc, char** argv) : SingleApplication(argc, argv)
{
    Log::print(Log::NOTICE, "=============== ZORVIK Dashboard application started =============== ");
    Log::print(Log::DEBUG, QString("Application version: %1").arg(appVersion));
    Log::print(Log::DEBUG, "Operating system: " + systemConfiguration());
    Log::print(Log::DEBUG, "Init SSL");
    WebAccess::initSSL();
    Log::print(Log::DEBUG, "Check tray");
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        Log::print(Log::WARNING, "Couldn't detect any system tray on this system.");
    Log::print(Log::DEBUG, QString("argc = %1").arg(argc));
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        Log::print(Log::DEBUG, QString("i = %1").arg(i));
        Log::print(Log::DEBUG, QString("argv = %1").arg(arg));
        arguments << arg;
    }
    Log::print(Log::DEBUG, "DashboardGUI: ok");
    Log::print(Log::DEBUG, QString("Program files: module %1, upgrade script %2")
                               .arg(OsPlatform::cryptokiModulePath(), OsPlatform::upgradeScriptPath()));
    installTranslations(this);
}

DashboardGUI::~DashboardGUI()
{
    delete mainWindow;
    Log::print(Log::NOTICE, "=============== ZORVIK Dashboard application finished ===============");
}

bool DashboardGUI::hasArg(QString arg)
{
    return arguments.contains(arg);
}

void DashboardGUI::initMainWindow()
{
    setQuitOnLastWindowClosed(false);
    mainWindow = new DashboardWindow(nullptr);
    if (hasArg("--restart")) {
        mainWindow->restartRequested = true;
        mainWindow->checkForRestart();
    }
    if (!hasArg("--tray")) {
        mainWindow->activateWindow();
        mainWindow->raise();
        mainWindow->show();
    }
    mainWindow->activateWindow();
    mainWindow->updateApplications();
    connect(this, &SingleApplication::raiseApp, mainWindow, &DashboardWindow::slotRaise);
    connect(this, &QCoreApplication::aboutToQuit, mainWindow, &DashboardWindow::slotQuit);
}

void DashboardGUI::showMessage(const QString& title, const QString& text)
{
    QMessageBox box(QMessageBox::Information, title, text, QMessageBox::Ok, mainWindow);
    ModalSeam::exec(&box);
    emit messageClosed();
}

void DashboardGUI::showInfo(const QString& title, const QString& text, const QString& label, bool saveAs)
{
    InformationDialog dialog(title, label, text, saveAs, mainWindow);
    const int result = ModalSeam::exec(&dialog);
    emit infoClosed(result);
}

void DashboardGUI::runOpenVPNDialog(const QString& openvpn_path, const QString& default_name,
                                    const QString& default_port, const QMap<QString, QString>& certs)
{
    OpenVPNDialog dialog(openvpn_path, default_name, default_port, certs, mainWindow);
    const bool accepted = ModalSeam::exec(&dialog) == QDialog::Accepted;
    const QStringList fields = dialog.fieldTexts();
    emit openVPNDialogClosed(accepted, fields.value(0), fields.value(1), fields.value(2), fields.value(3),
                             dialog.cert());
}

void initGTK()
{
    Log::print(Log::DEBUG, QString("QT Style: %1").arg(QApplication::style()->objectName()));
    // GTK ends the process when it finds no X display, so it is tried on X11 only.
    if (QGuiApplication::platformName() != "xcb")
        return;
    QLibrary gtk("gtk-x11-2.0", 0);
    // gtk_init hooks GDK's event source into the GLib main context that Qt's event loop
    // runs, so the library must stay mapped after the handle is released: unloading it
    // left the loop calling into unmapped code (a crash at the first event-loop round).
    gtk.setLoadHints(QLibrary::PreventUnloadHint);
    using GtkInit = void (*)(int*, char***);
    if (auto init = reinterpret_cast<GtkInit>(gtk.resolve("gtk_init")))
        init(nullptr, nullptr);
    gtk.unload();
}
