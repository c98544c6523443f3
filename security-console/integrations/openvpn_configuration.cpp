// OpenVPN with a certificate on the key: the certificates come from openvpn itself
// (--show-pkcs11-ids over our module); the user picks one and gets the client settings.
#include "sp_components.h"

#include "icon_dialog.h"
#include "information_dialog.h"
#include "log.h"
#include "modal_seam.h"
#include "openvpn_dialog.h"
#include "process_helpers.h"

#include <QDir>
#include <QIcon>
#include <QRegularExpression>

namespace {
void debug(const QString& text)
{
    Log::print(Log::DEBUG, text);
}
} // namespace

QString SP_Components::OpenVPNExe()
{
    openVPNMark = false;
    if (executeCommand("which", "openvpn", false) != 0)
        return QString();
    return executeCommandWithOutput("which", "openvpn", false).simplified();
}

bool SP_Components::isOpenVPNInstalled()
{
    return !OpenVPNExe().isEmpty();
}

QString SP_Components::OpenVPNConfig()
{
    return QDir::homePath();
}

VPNCert SP_Components::ReadCert(QString block)
{
    const QStringList lines = block.split(QRegularExpression("[\r\n]"), Qt::SkipEmptyParts);
    VPNCert cert;
    cert.commonName = ReadVal("CN=", lines.value(0));
    cert.serial = ReadVal("Serial:", lines.value(1).trimmed());
    cert.serializedId = ReadVal("Serialized id:", lines.value(2).trimmed()).remove("Serialized id:").trimmed();
    cert.email = ReadVal("emailAddress=", lines.value(0));
    return cert;
}

QMap<QString, QString> SP_Components::openVPNCertificates(const QString& exe, const QString& lib)
{
    return certificatesInPkcs11Ids(executeCommandWithOutput(exe, " --show-pkcs11-ids \"" + lib + "\"", false));
}

QMap<QString, QString> SP_Components::certificatesInPkcs11Ids(const QString& output)
{
    QStringList blocks = output.split("Certificate");
    blocks.removeFirst();
    QMap<QString, QString> choices;
    for (const QString& block : blocks) {
        const VPNCert cert = ReadCert(block);
        const QString display = cert.commonName + " " + cert.email + " " + cert.serial;
        choices.insert(display, cert.serializedId);
        debug(display);
    }
    return choices;
}

QString SP_Components::openVPNConfigText(const QString& lib, const QString& certId, const QString& ca,
                                         const QString& address, const QString& port)
{
    QStringList lines{"pkcs11-providers '" + lib + "'",
                      "pkcs11-id '" + certId + "'",
                      "pkcs11-protected-authentication 1",
                      "ca '" + ca + "'",
                      "client",
                      "dev tun",
                      "remote " + address + " " + port,
                      "proto udp",
                      "script-security 2",
                      "resolv-retry infinite",
                      "nobind",
                      "persist-key",
                      "persist-tun",
                      "reneg-sec 0",
                      "remote-cert-tls server",
                      "comp-lzo",
                      "verb 3"};
    if (platform == "Linux" || platform == "Linux64") {
        lines << "user openvpn"
              << "group openvpn"
              << "route-delay 7"
              << "reneg-sec 0"
              << "mute 20"
              << "up /etc/openvpn/update-resolv-conf";
        for (const char* plugin :
             {"/usr/lib/openvpn/openvpn-down-root.so", "/usr/lib/openvpn/openvpn-plugin-down-root.so"}) {
            if (checkFile(plugin))
                lines << QString("plugin %1 /etc/openvpn/update-resolv-conf").arg(plugin);
        }
    }
    return lines.join("\n") + "\n";
}

void SP_Components::configureOpenVPN(QWidget* parent)
{
    debug("ConfigureOpenVPN () ");
    const QString exe = OpenVPNExe();
    if (exe.isEmpty()) {
        debug("ERROR: Cannot find OpenVPN");
        return;
    }
    const QString lib = CryptokiPath();
    if (lib.isEmpty()) {
        debug("ERROR: Cannot find Cryptoki");
        return;
    }
    const QMap<QString, QString> choices = openVPNCertificates(exe, lib);
    if (choices.isEmpty()) {
        emit ComponentError("Cannot configure Zorvik Security for VPN: you have no appropriate security certificate "
                            "on your Vantrel.");
        return;
    }
    const QString dir = OpenVPNConfig();
    if (dir.isEmpty()) {
        debug("ERROR: Cannot find OpenVPN config dir");
        return;
    }
    OpenVPNDialog dialog(dir, "Zorvik", "1194", choices, parent);
    if (ModalSeam::exec(&dialog) != QDialog::Accepted)
        return;
    const QStringList fields = dialog.fieldTexts();
    const QString config = openVPNConfigText(lib, dialog.cert(), fields.value(3), fields.value(1), fields.value(2));
    // The view shows rich text: keep the lines as they are.
    InformationDialog info(tr("OpenVPN Configuration"),
                           tr("You can save the config file in the folder %1 with the following contents:").arg(dir),
                           "<pre>" + config.toHtmlEscaped() + "</pre>", false, parent);
    ModalSeam::exec(&info);
}

void SP_Components::openVPNInstall(QWidget* parent)
{
    IconDialog dialog(tr("Zorvik support for OpenVPN"), QIcon(":/Icons/icons/openvpn.png"),
                      tr("<p>You should have OpenVPN installed to enable secure VPN. <p>Please download and install "
                         "the program here: ") +
                          "<a href=\"https://openvpn.net/index.php/open-source/downloads.html\">openvpn.net</a>",
                      parent);
    ModalSeam::exec(&dialog);
}
