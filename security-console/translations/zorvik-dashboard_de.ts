<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>AboutDialog</name>
    <message>
        <location filename="../updates/about_dialog.ui" line="+14"/>
        <source>About</source>
        <translation>Über</translation>
    </message>
    <message>
        <location line="+47"/>
        <source>&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Zorvik Dashboard&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Zorvik Dashboard&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Version</source>
        <translation>Version</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Part of the Zorvik Security Pack</source>
        <translation>Teil des Zorvik Security Pack</translation>
    </message>
    <message>
        <location line="+47"/>
        <source>&lt;span style=&quot; color:#777777;&quot;&gt;Copyright © Zorvik. All rights reserved.&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; color:#777777;&quot;&gt;Copyright © Zorvik. Alle Rechte vorbehalten.&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <location filename="../updates/about_dialog.cpp" line="+9"/>
        <source>About %1</source>
        <translation>Über %1</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Version %1</source>
        <translation>Version %1</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&lt;a href=&quot;update&quot; style=&quot; text-decoration: none;&quot;&gt;New version available&lt;/a&gt;</source>
        <translation>&lt;a href=&quot;update&quot; style=&quot; text-decoration: none;&quot;&gt;Neue Version verfügbar&lt;/a&gt;</translation>
    </message>
</context>
<context>
    <name>Application messages</name>
    <message>
        <location filename="../app/process_helpers.cpp" line="+111"/>
        <location filename="../window/dashboard_window.cpp" line="+371"/>
        <location line="+27"/>
        <location filename="../window/solutions_tab.cpp" line="+271"/>
        <source>%1 message</source>
        <translation>%1 – Meldung</translation>
    </message>
    <message>
        <location filename="../window/dashboard_window.cpp" line="-152"/>
        <source>Zorvik: Key available</source>
        <translation>Zorvik: Schlüssel verfügbar</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: Reader %1 found</source>
        <translation>Zorvik: Lesegerät %1 gefunden</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: SmartCard service error</source>
        <translation>Zorvik: Fehler des Chipkartendienstes</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Zorvik: No token found</source>
        <translation>Zorvik: Kein Schlüssel gefunden</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>New version of %1 is available for download.</source>
        <translation>Eine neue Version von %1 steht zum Herunterladen bereit.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Restart is required</source>
        <translation>Ein Neustart ist erforderlich</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: Key available
%1</source>
        <translation>Zorvik: Schlüssel verfügbar
%1</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: Reader %1 found
%2</source>
        <translation>Zorvik: Lesegerät %1 gefunden
%2</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Zorvik: SmartCard service error
%1</source>
        <translation>Zorvik: Fehler des Chipkartendienstes
%1</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Zorvik: No token found
%1</source>
        <translation>Zorvik: Kein Schlüssel gefunden
%1</translation>
    </message>
    <message>
        <location line="+96"/>
        <source>SmartCard Service error. Please restore your SmartCard service and then press ok to restart %1</source>
        <translation>Fehler des Chipkartendienstes. Bitte stellen Sie den Chipkartendienst wieder her und klicken Sie dann auf OK, um %1 neu zu starten</translation>
    </message>
    <message>
        <location line="+27"/>
        <source>%1 has been installed. 
Please restart your computer to enable all features.</source>
        <translation>%1 wurde installiert. 
Bitte starten Sie den Computer neu, um alle Funktionen zu nutzen.</translation>
    </message>
    <message>
        <location filename="../support/support_dialog.cpp" line="+51"/>
        <source>Dashboard warning</source>
        <translation>Dashboard-Warnung</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 is sending your previous support request. Please wait and try again later.</source>
        <translation>%1 sendet gerade Ihre vorherige Supportanfrage. Bitte warten Sie und versuchen Sie es später erneut.</translation>
    </message>
    <message>
        <location filename="../window/solutions_tab.cpp" line="-102"/>
        <source>Cannot install %1.Please try again later or contact Zorvik support</source>
        <translation>%1 kann nicht installiert werden. Bitte versuchen Sie es später erneut oder wenden Sie sich an den Zorvik-Support</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Cannot download Zorvik Installation Package. Please try again later or contact Zorvik support</source>
        <translation>Das Zorvik-Installationspaket kann nicht heruntergeladen werden. Bitte versuchen Sie es später erneut oder wenden Sie sich an den Zorvik-Support</translation>
    </message>
    <message>
        <location line="+40"/>
        <source>You already have the latest version of Zorvik Security Pack installed.</source>
        <translation>Sie haben bereits die neueste Version des Zorvik Security Pack installiert.</translation>
    </message>
</context>
<context>
    <name>Button text</name>
    <message>
        <location filename="../updates/information_dialog.cpp" line="+21"/>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
</context>
<context>
    <name>Certificate info</name>
    <message>
        <location filename="../certstore/certificate_details_dialog.cpp" line="+37"/>
        <source>X509 Certificate</source>
        <translation>X.509-Zertifikat</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>X509 Certificate &lt;strong&gt;[Invalid]&lt;/strong&gt;</source>
        <translation>X.509-Zertifikat &lt;strong&gt;[ungültig]&lt;/strong&gt;</translation>
    </message>
    <message>
        <location filename="../window/certificates_tab.cpp" line="+143"/>
        <source>Invalid Certificate</source>
        <translation>Ungültiges Zertifikat</translation>
    </message>
</context>
<context>
    <name>CertificateDetailsDialog</name>
    <message>
        <location filename="../certstore/certificate_details_dialog.ui" line="+6"/>
        <source>Certificate Details</source>
        <translation>Zertifikatdetails</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Public Certificate Information&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Öffentliche Zertifikatinformationen&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Certificate Type&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Zertifikattyp&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 ID&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11-ID&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 Label&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11-Bezeichnung&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Issued To:&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Ausgestellt für:&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+114"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Common Name (CN)&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Allgemeiner Name (CN)&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="-88"/>
        <location line="+114"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Organization (O)&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Organisation (O)&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="-88"/>
        <location line="+114"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Organization Unit (OU)&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Organisationseinheit (OU)&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="-88"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Serial Number&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Seriennummer&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Issued By:&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Ausgestellt von:&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+88"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Validity:&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Gültigkeit:&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Issued On&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Ausgestellt am&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Expires On&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Läuft ab am&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&#xa0;&#xa0;&#xa0;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Alternative Names (SAN)&lt;/span&gt;</source>
        <translation>&#xa0;&#xa0;&#xa0;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Alternative Namen (SAN)&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Extended Key Usage&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Erweiterte Schlüsselverwendung&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Fingerprints:&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Fingerabdrücke:&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;SHA1 Fingerprint&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;SHA1-Fingerabdruck&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;MD5 Fingerprint&lt;/span&gt;</source>
        <translation>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;MD5-Fingerabdruck&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+28"/>
        <source>...</source>
        <translation>...</translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
</context>
<context>
    <name>CryptokiInterface</name>
    <message>
        <location filename="../certstore/cryptoki_interface.cpp" line="+227"/>
        <source>Cannot get certificate information: zorvik-cryptoki error.</source>
        <translation>Die Zertifikatinformationen können nicht gelesen werden: Fehler in zorvik-cryptoki.</translation>
    </message>
    <message>
        <location line="+43"/>
        <source>Password request</source>
        <translation>Passwortabfrage</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Please enter the password that was used to encrypt this certificate:</source>
        <translation>Bitte geben Sie das Passwort ein, mit dem dieses Zertifikat verschlüsselt wurde:</translation>
    </message>
    <message>
        <location line="+62"/>
        <source>Incorrect key type = %1</source>
        <translation>Falscher Schlüsseltyp = %1</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>No certificate found</source>
        <translation>Kein Zertifikat gefunden</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>OPENSSL error </source>
        <translation>OpenSSL-Fehler </translation>
    </message>
    <message>
        <location line="+12"/>
        <source>invalid certificate file</source>
        <translation>ungültige Zertifikatdatei</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Duplicate certificate</source>
        <translation>Zertifikat bereits vorhanden</translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+38"/>
        <source>Password error %1</source>
        <translation>Passwortfehler %1</translation>
    </message>
    <message>
        <location line="-32"/>
        <source>Cannot login to token. %1</source>
        <translation>Anmeldung am Schlüssel nicht möglich. %1</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Cannot install certificate. Return code %1</source>
        <translation>Das Zertifikat kann nicht installiert werden. Rückgabewert %1</translation>
    </message>
    <message>
        <location line="+37"/>
        <source>Cannot delete certificate. %1</source>
        <translation>Das Zertifikat kann nicht gelöscht werden. %1</translation>
    </message>
</context>
<context>
    <name>CryptokiStorage</name>
    <message>
        <location filename="../certstore/certificate_storage.cpp" line="+98"/>
        <source>Zorvik PIN Request</source>
        <translation>Zorvik-PIN-Abfrage</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Please enter PIN for your Vantrel:</source>
        <extracomment>dilaog message</extracomment>
        <translation>Bitte geben Sie die PIN Ihres Vantrel ein:</translation>
    </message>
    <message>
        <location line="+18"/>
        <location line="+5"/>
        <source>Invalid certificate</source>
        <translation>Ungültiges Zertifikat</translation>
    </message>
</context>
<context>
    <name>DashboardNetworkManager</name>
    <message>
        <location filename="../network/dashboard_network_manager.cpp" line="+26"/>
        <source>Proxy config string user: %1</source>
        <translation>Proxy-Einstellung des Benutzers: %1</translation>
    </message>
</context>
<context>
    <name>DashboardWindow</name>
    <message>
        <location filename="../window/dashboard_window.ui" line="+20"/>
        <location filename="../window/certificates_tab.cpp" line="+126"/>
        <location filename="../window/solutions_tab.cpp" line="-123"/>
        <source>Zorvik Dashboard</source>
        <translation>Zorvik Dashboard</translation>
    </message>
    <message>
        <location line="+16"/>
        <location line="+1248"/>
        <source>Solutions</source>
        <translation>Lösungen</translation>
    </message>
    <message>
        <location line="-1239"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Zorvik Solutions&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Zorvik-Lösungen&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;Secure by Zorvik&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;Geschützt von Zorvik&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>&lt;span style=&quot; font-size:12pt;&quot;&gt;Vaultry&lt;/span&gt;&lt;br/&gt;&lt;span style=&quot; font-size:10pt; color:#666666;&quot;&gt;Launch Vaultry&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:12pt;&quot;&gt;Vaultry&lt;/span&gt;&lt;br/&gt;&lt;span style=&quot; font-size:10pt; color:#666666;&quot;&gt;Vaultry starten&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+36"/>
        <source>User Guide</source>
        <translation>Benutzerhandbuch</translation>
    </message>
    <message>
        <location line="-10"/>
        <source>&lt;span style=&quot; font-size:12pt;&quot;&gt;Relayon&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:12pt;&quot;&gt;Relayon&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+33"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;Secure with Zorvik&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;Mit Zorvik schützen&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;img src=&quot;:/Icons/icons/openvpn.png&quot;/&gt;</source>
        <translation>&lt;img src=&quot;:/Icons/icons/openvpn.png&quot;/&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;span style=&quot; font-size:12pt;&quot;&gt;OpenVPN &lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:12pt;&quot;&gt;OpenVPN &lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Add a connection...</source>
        <translation>Verbindung hinzufügen...</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;How to Secure&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;So schützen Sie&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+23"/>
        <location line="+23"/>
        <location line="+23"/>
        <location line="+23"/>
        <location line="+23"/>
        <location line="+23"/>
        <source>&lt;img src=&quot;:/Icons/icons/help.png&quot;/&gt;</source>
        <translation>&lt;img src=&quot;:/Icons/icons/help.png&quot;/&gt;</translation>
    </message>
    <message>
        <location line="-128"/>
        <source>Firefox</source>
        <translation>Firefox</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Thunderbird</source>
        <translation>Thunderbird</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Windows Logon</source>
        <translation>Windows-Anmeldung</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Juniper VPN</source>
        <translation>Juniper VPN</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>SharePoint</source>
        <translation>SharePoint</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>OpenVPN</source>
        <translation>OpenVPN</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Outlook and OWA</source>
        <translation>Outlook und OWA</translation>
    </message>
    <message>
        <location line="+41"/>
        <location line="+854"/>
        <source>Help</source>
        <translation>Hilfe</translation>
    </message>
    <message>
        <location line="-838"/>
        <location line="+83"/>
        <source>Smartphone</source>
        <translation>Smartphone</translation>
    </message>
    <message>
        <location line="-77"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Smartphone Token&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Smartphone-Token&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Scan the QR code with the Zorvik app on your smartphone.</source>
        <translation>Scannen Sie den QR-Code mit der Zorvik-App auf Ihrem Smartphone.</translation>
    </message>
    <message>
        <location line="+28"/>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+794"/>
        <source>Certificates</source>
        <translation>Zertifikate</translation>
    </message>
    <message>
        <location line="-782"/>
        <source>No mobile device is connected</source>
        <translation>Kein Mobilgerät verbunden</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Pair</source>
        <translation>Koppeln</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Eject</source>
        <translation>Auswerfen</translation>
    </message>
    <message>
        <location line="+30"/>
        <location filename="../window/dashboard_window.cpp" line="-347"/>
        <source>Please present Vantrel to access the available security certificates.</source>
        <translation>Bitte stecken Sie Ihren Vantrel ein, um auf die Sicherheitszertifikate zuzugreifen.</translation>
    </message>
    <message>
        <location line="+49"/>
        <source>Please wait while the certificate information is being obtained.</source>
        <translation>Bitte warten Sie, die Zertifikatinformationen werden gelesen.</translation>
    </message>
    <message>
        <location line="+43"/>
        <source>&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Available Certificates&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Verfügbare Zertifikate&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Certificate Name&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Zertifikatname&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+31"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Issued By&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Ausgestellt von&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+31"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Expire Date&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Ablaufdatum&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+31"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Delete &lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Löschen &lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+46"/>
        <source>&lt;a href=&apos;import&apos;&gt;&lt;img src=&apos;:/Icons/images/import_cert.png&apos;/&gt;&lt;/a&gt;</source>
        <translation>&lt;a href=&apos;import&apos;&gt;&lt;img src=&apos;:/Icons/images/import_cert.png&apos;/&gt;&lt;/a&gt;</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>&lt;span style=&quot; font-size:11pt;&quot;&gt;Import a new certificate&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt;&quot;&gt;Neues Zertifikat importieren&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <location line="+80"/>
        <source>&lt;a href=&apos;refresh&apos;&gt;&lt;img src=&apos;:/Icons/images/refresh.png&apos;/&gt;&lt;/a&gt;</source>
        <translation>&lt;a href=&apos;refresh&apos;&gt;&lt;img src=&apos;:/Icons/images/refresh.png&apos;/&gt;&lt;/a&gt;</translation>
    </message>
    <message>
        <location line="-67"/>
        <source>&lt;span style=&quot; font-size:11pt;&quot;&gt;Refresh&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:11pt;&quot;&gt;Aktualisieren&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+27"/>
        <location line="+434"/>
        <source>Key Status</source>
        <translation>Schlüsselstatus</translation>
    </message>
    <message>
        <location line="-428"/>
        <source>&lt;a&gt;&lt;img src=&apos;:/Icons/images/new.png&apos;/&gt;&lt;/a&gt;</source>
        <translation>&lt;a&gt;&lt;img src=&apos;:/Icons/images/new.png&apos;/&gt;&lt;/a&gt;</translation>
    </message>
    <message>
        <location line="+13"/>
        <location filename="../window/key_status_tab.cpp" line="+15"/>
        <source>Gathering status data - please wait.</source>
        <translation>Statusdaten werden gesammelt – bitte warten.</translation>
    </message>
    <message>
        <location line="+34"/>
        <source>&lt;a href=&apos;refresh&apos; style=&quot;color: #1d86c7; text-decoration: none;&quot;&gt;Refresh&lt;/a&gt;</source>
        <translation>&lt;a href=&apos;refresh&apos; style=&quot;color: #1d86c7; text-decoration: none;&quot;&gt;Aktualisieren&lt;/a&gt;</translation>
    </message>
    <message>
        <location line="+28"/>
        <source>&lt;b&gt;General Information:&lt;/b&gt;</source>
        <translation>&lt;b&gt;Allgemeine Informationen:&lt;/b&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Key Type</source>
        <translation>Schlüsseltyp</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Key Name</source>
        <translation>Schlüsselname</translation>
    </message>
    <message>
        <location line="+17"/>
        <source>&lt;b&gt;Internal Technical Information:&lt;/b&gt;</source>
        <translation>&lt;b&gt;Interne technische Informationen:&lt;/b&gt;</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>GetInfo Status:</source>
        <translation>GetInfo-Status:</translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Smartcard ATR:</source>
        <translation>Chipkarten-ATR:</translation>
    </message>
    <message>
        <location line="+20"/>
        <location line="+37"/>
        <source>Network:</source>
        <translation>Netzwerk:</translation>
    </message>
    <message>
        <location line="-6"/>
        <location line="+236"/>
        <source>Advanced</source>
        <translation>Erweitert</translation>
    </message>
    <message>
        <location line="-224"/>
        <source>Enable SSL encryption</source>
        <translation>SSL-Verschlüsselung aktivieren</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Configuration</source>
        <translation>Konfiguration</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Simple access codes:</source>
        <translation>Einfache Zugangscodes:</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>Proxy</source>
        <translation>Proxy</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Use proxy to connect Zorvik services</source>
        <translation>Proxy für Zorvik-Dienste verwenden</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Import from IE</source>
        <translation>Aus IE übernehmen</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Address:</source>
        <translation>Adresse:</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Port:</source>
        <translation>Port:</translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Smartcard removal behavior</source>
        <translation>Verhalten beim Entfernen der Chipkarte</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Zorvik credential provider</source>
        <translation>Zorvik-Anmeldeanbieter</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>WARNING: This setting will apply only after reboot</source>
        <translation>WARNUNG: Diese Einstellung wirkt erst nach einem Neustart</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Show all PKCS containers</source>
        <translation>Alle PKCS-Container anzeigen</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>View</source>
        <translation>Ansicht</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Ctrl+Q</source>
        <translation>Ctrl+Q</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Exit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>F5</source>
        <translation>F5</translation>
    </message>
    <message>
        <location line="+3"/>
        <location filename="../window/dashboard_window.cpp" line="+298"/>
        <location line="+6"/>
        <source>Refresh</source>
        <translation>Aktualisieren</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Ctrl+2</source>
        <translation>Ctrl+2</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Ctrl+1</source>
        <translation>Ctrl+1</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Ctrl+3</source>
        <translation>Ctrl+3</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Ctrl+4</source>
        <translation>Ctrl+4</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Dashboard Help</source>
        <translation>Dashboard-Hilfe</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Contact support...</source>
        <translation>Support kontaktieren...</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>About</source>
        <translation>Über</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Check for updates</source>
        <translation>Nach Updates suchen</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Vantrel Lite</source>
        <translation>Vantrel Lite</translation>
    </message>
    <message>
        <location filename="../window/advanced_tab.cpp" line="+55"/>
        <source>Writing proxy settings:%1</source>
        <translation>Proxy-Einstellungen werden geschrieben:%1</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Error writing user proxy settings %1 code=%2</source>
        <translation>Fehler beim Schreiben der Proxy-Einstellungen des Benutzers %1 Code=%2</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Error writing system proxy settings %1 code=%2</source>
        <translation>Fehler beim Schreiben der Proxy-Einstellungen des Systems %1 Code=%2</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>System Default</source>
        <translation>Systemstandard</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Allow</source>
        <translation>Erlauben</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Disallow</source>
        <translation>Nicht erlauben</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>System default</source>
        <translation>Systemstandard</translation>
    </message>
    <message>
        <location line="+0"/>
        <source> (Allow)</source>
        <translation> (erlauben)</translation>
    </message>
    <message>
        <location line="+0"/>
        <source> (Disallow)</source>
        <translation> (nicht erlauben)</translation>
    </message>
    <message>
        <location filename="../window/certificates_tab.cpp" line="-68"/>
        <source>Confirm %1 deletion</source>
        <translation>Löschen von %1 bestätigen</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to delete:</source>
        <translation>Möchten Sie wirklich löschen:</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1

You will not be able to identify yourself with this %2 once it has been deleted.</source>
        <translation>%1

Nach dem Löschen können Sie sich mit diesem %2 nicht mehr ausweisen.</translation>
    </message>
    <message>
        <location line="+25"/>
        <source>Open certificate file</source>
        <translation>Zertifikatdatei öffnen</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>PKCS12 files (*.pfx *.p12);;All files (*.*)</source>
        <translation>PKCS12-Dateien (*.pfx *.p12);;Alle Dateien (*.*)</translation>
    </message>
    <message>
        <location line="+40"/>
        <source>Installing certificate. Please wait</source>
        <translation>Zertifikat wird installiert. Bitte warten</translation>
    </message>
    <message>
        <location filename="../window/dashboard_window.cpp" line="-59"/>
        <source>Click the &quot;Refresh&quot; button for current Key status.</source>
        <translation>Klicken Sie auf „Aktualisieren“, um den aktuellen Schlüsselstatus zu sehen.</translation>
    </message>
    <message>
        <location line="+51"/>
        <location line="+6"/>
        <source>Import a new certificate</source>
        <translation>Neues Zertifikat importieren</translation>
    </message>
    <message>
        <location filename="../window/key_status_tab.cpp" line="+66"/>
        <source>No Key present.</source>
        <translation>Kein Schlüssel eingesteckt.</translation>
    </message>
    <message>
        <location filename="../window/solutions_tab.cpp" line="-11"/>
        <source>Configuring OpenVPN</source>
        <translation>OpenVPN wird eingerichtet</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Please present your Vantrel to configure OpenVPN.</source>
        <translation>Bitte stecken Sie Ihren Vantrel ein, um OpenVPN einzurichten.</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>%1 was not installed properly. Do you wish to reinstall %2?</source>
        <translation>%1 wurde nicht richtig installiert. Möchten Sie %2 neu installieren?</translation>
    </message>
    <message>
        <location line="+56"/>
        <source>%1 message</source>
        <comment>Application messages</comment>
        <translation>%1 – Meldung</translation>
    </message>
    <message>
        <location line="-46"/>
        <source>Zorvik security certificates support for Mozilla Firefox</source>
        <comment>Window messages</comment>
        <translation>Zorvik-Sicherheitszertifikate für Mozilla Firefox</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&lt;p&gt;You should have Mozilla Firefox installed to enable Zorvik security certificates support.&lt;p&gt;Please download and install the program here: </source>
        <comment>Window messages</comment>
        <translation>&lt;p&gt;Für Zorvik-Sicherheitszertifikate muss Mozilla Firefox installiert sein.&lt;p&gt;Bitte laden Sie das Programm hier herunter und installieren Sie es: </translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Secure email support for Mozilla Thunderbird</source>
        <comment>Window messages</comment>
        <translation>Sichere E-Mail mit Mozilla Thunderbird</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&lt;p&gt;You should have Mozilla Thunderbird installed to enable secure email.&lt;p&gt;Please download and install the program here: </source>
        <comment>Window messages</comment>
        <translation>&lt;p&gt;Für sichere E-Mail muss Mozilla Thunderbird installiert sein.&lt;p&gt;Bitte laden Sie das Programm hier herunter und installieren Sie es: </translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Zorvik support for OpenVPN</source>
        <comment>Window messages</comment>
        <translation>Zorvik-Unterstützung für OpenVPN</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&lt;p&gt;You should have OpenVPN installed to enable secure VPN.&lt;p&gt;Please download and install the program here: </source>
        <comment>Window messages</comment>
        <translation>&lt;p&gt;Für ein sicheres VPN muss OpenVPN installiert sein.&lt;p&gt;Bitte laden Sie das Programm hier herunter und installieren Sie es: </translation>
    </message>
</context>
<context>
    <name>Dialog titles</name>
    <message>
        <location filename="../support/report_error.cpp" line="+35"/>
        <source>%1 Error</source>
        <translation>%1 – Fehler</translation>
    </message>
    <message>
        <location filename="../token/token_update.cpp" line="+85"/>
        <source>%1: Update ZORVIK Key</source>
        <translation>%1: ZORVIK-Schlüssel aktualisieren</translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Zorvik Dashboard</source>
        <translation>Zorvik Dashboard</translation>
    </message>
</context>
<context>
    <name>Error message</name>
    <message>
        <location filename="../certstore/cryptoki_interface.cpp" line="+11"/>
        <source>Internal Key error</source>
        <translation>Interner Schlüsselfehler</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Object not found on key</source>
        <translation>Objekt auf dem Schlüssel nicht gefunden</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Incorrect PIN</source>
        <translation>Falsche PIN</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Key blocked</source>
        <translation>Schlüssel gesperrt</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Your Vantrel is needed to display your certificates. Insert your Vantrel.</source>
        <translation>Ihr Vantrel wird benötigt, um Ihre Zertifikate anzuzeigen. Stecken Sie Ihren Vantrel ein.</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>The authentication server is not responding.</source>
        <translation>Der Authentifizierungsserver antwortet nicht.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Key was disabled by user</source>
        <translation>Der Schlüssel wurde vom Benutzer deaktiviert</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Your Vantrel does not appear to be responding correctly. Try removing and reinserting the Vantrel. Contact support if the issue continues. Error code %1</source>
        <translation>Ihr Vantrel scheint nicht richtig zu antworten. Ziehen Sie den Vantrel ab und stecken Sie ihn wieder ein. Wenden Sie sich an den Support, wenn das Problem bleibt. Fehlercode %1</translation>
    </message>
</context>
<context>
    <name>OpenVPNDialog</name>
    <message>
        <location filename="../integrations/openvpn_dialog.ui" line="+50"/>
        <source>Address:</source>
        <translation>Adresse:</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Port:</source>
        <translation>Port:</translation>
    </message>
    <message>
        <location line="-46"/>
        <source>Zorvik Security for VPN</source>
        <translation>Zorvik-Sicherheit für VPN</translation>
    </message>
    <message>
        <location line="+18"/>
        <source>&lt;b&gt;Configuration Name:&lt;/b&gt;</source>
        <translation>&lt;b&gt;Name der Konfiguration:&lt;/b&gt;</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Server Configuration</source>
        <translation>Server-Konfiguration</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>99999; </source>
        <translation>99999; </translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Certificate Configuration</source>
        <translation>Zertifikat-Konfiguration</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Certificate Authority:</source>
        <translation>Zertifizierungsstelle:</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>...</source>
        <translation>...</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Personal Certificate:</source>
        <translation>Persönliches Zertifikat:</translation>
    </message>
    <message>
        <location filename="../integrations/openvpn_dialog.cpp" line="+57"/>
        <source>Select File</source>
        <comment>Dialog titles</comment>
        <translation>Datei auswählen</translation>
    </message>
</context>
<context>
    <name>RSA Keypair info</name>
    <message>
        <location filename="../certstore/rsa_key_details_dialog.cpp" line="+20"/>
        <source>RSA Keypair</source>
        <translation>RSA-Schlüsselpaar</translation>
    </message>
</context>
<context>
    <name>RsaKeyDetailsDialog</name>
    <message>
        <location filename="../certstore/rsa_key_details_dialog.ui" line="+6"/>
        <source>RSA Keypair Details</source>
        <translation>RSA-Schlüsselpaar – Details</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Type&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Typ&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 ID&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11-ID&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 Label&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11-Bezeichnung&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Modulus:&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Modulus:&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Exponent:&lt;/span&gt;</source>
        <translation>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Exponent:&lt;/span&gt;</translation>
    </message>
    <message>
        <location line="+35"/>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
</context>
<context>
    <name>SP_Components</name>
    <message>
        <location filename="../integrations/chrome_extension.cpp" line="+108"/>
        <source>Zorvik Dashboard</source>
        <translation>Zorvik Dashboard</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Google Chrome is running.
Please close Google Chrome before continue</source>
        <translation>Google Chrome läuft.
Bitte schließen Sie Google Chrome, bevor Sie fortfahren</translation>
    </message>
    <message>
        <location filename="../integrations/openvpn_configuration.cpp" line="+133"/>
        <source>OpenVPN Configuration</source>
        <translation>OpenVPN-Konfiguration</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>You can save the config file in the folder %1 with the following contents:</source>
        <translation>Sie können die Konfigurationsdatei mit folgendem Inhalt im Ordner %1 speichern:</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Zorvik support for OpenVPN</source>
        <translation>Zorvik-Unterstützung für OpenVPN</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&lt;p&gt;You should have OpenVPN installed to enable secure VPN. &lt;p&gt;Please download and install the program here: </source>
        <translation>&lt;p&gt;Für ein sicheres VPN muss OpenVPN installiert sein. &lt;p&gt;Bitte laden Sie das Programm hier herunter und installieren Sie es: </translation>
    </message>
</context>
<context>
    <name>SingleApplication</name>
    <message>
        <location filename="../app/single_application.cpp" line="+32"/>
        <location line="+32"/>
        <source>ERROR:read_timer already exisit</source>
        <translation>FEHLER: read_timer existiert bereits</translation>
    </message>
    <message>
        <location line="-8"/>
        <source>Unable to create shared memory segment.</source>
        <translation>Das gemeinsame Speichersegment kann nicht angelegt werden.</translation>
    </message>
</context>
<context>
    <name>SmartphoneInterface</name>
    <message>
        <location filename="../smartphone/smartphone_interface.cpp" line="+36"/>
        <source>Smartphone driver not found</source>
        <translation>Smartphone-Treiber nicht gefunden</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>No mobile device is connected</source>
        <translation>Kein Mobilgerät verbunden</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&quot;%1&quot; is connected</source>
        <translation>„%1“ ist verbunden</translation>
    </message>
    <message>
        <location line="+0"/>
        <location line="+107"/>
        <source>Unknown device</source>
        <translation>Unbekanntes Gerät</translation>
    </message>
    <message>
        <location line="-105"/>
        <source>Pairing in process</source>
        <translation>Kopplung läuft</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Unknown status %1</source>
        <translation>Unbekannter Status %1</translation>
    </message>
</context>
<context>
    <name>SupportDialog</name>
    <message>
        <location filename="../support/support_dialog.ui" line="+14"/>
        <source>Zorvik - Support</source>
        <translation>Zorvik - Support</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Describe the issue that you need help with:</source>
        <translation>Beschreiben Sie das Problem, bei dem Sie Hilfe benötigen:</translation>
    </message>
    <message>
        <location line="+17"/>
        <source>Name (optional)</source>
        <translation>Name (optional)</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Email Address (optional)</source>
        <translation>E-Mail-Adresse (optional)</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>This information will be submited to Zorvik support team. The Zorvik Service Desk will respond to your request immediately with an email reply.</source>
        <translation>Diese Angaben werden an das Zorvik-Supportteam übermittelt. Der Zorvik Service Desk beantwortet Ihre Anfrage umgehend per E-Mail.</translation>
    </message>
    <message>
        <location line="+25"/>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Submit Report</source>
        <translation>Anfrage senden</translation>
    </message>
</context>
<context>
    <name>TicketSender</name>
    <message>
        <location filename="../support/ticket_sender.cpp" line="+71"/>
        <source>Zorvik Dashboard</source>
        <translation>Zorvik Dashboard</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Sending support request. Please wait</source>
        <translation>Die Supportanfrage wird gesendet. Bitte warten</translation>
    </message>
</context>
<context>
    <name>UpdateDialog</name>
    <message>
        <location filename="../updates/update_dialog.ui" line="+14"/>
        <source>Software Update</source>
        <translation>Software-Update</translation>
    </message>
    <message>
        <location line="+40"/>
        <source>Security Pack Version</source>
        <translation>Security Pack-Version</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>What&apos;s New:</source>
        <translation>Neuerungen:</translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Current version:</source>
        <translation>Aktuelle Version:</translation>
    </message>
    <message>
        <location line="+22"/>
        <source>Update Later</source>
        <translation>Später aktualisieren</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Install Now</source>
        <translation>Jetzt installieren</translation>
    </message>
    <message>
        <location filename="../updates/update_dialog.cpp" line="+12"/>
        <source>Security Pack Version %1 
 is now available</source>
        <translation>Security Pack-Version %1 
 ist jetzt verfügbar</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Current version: %1</source>
        <translation>Aktuelle Version: %1</translation>
    </message>
</context>
<context>
    <name>Warning messages</name>
    <message>
        <location filename="../support/report_error.cpp" line="+1"/>
        <source>The application encountered a critical problem and will be closed immediately.
Please contact Zorvik support if the problem remains.</source>
        <translation>Das Programm hat ein schwerwiegendes Problem festgestellt und wird sofort beendet.
Bitte wenden Sie sich an den Zorvik-Support, wenn das Problem bleibt.</translation>
    </message>
    <message>
        <location filename="../token/token_update.cpp" line="-83"/>
        <source>Update procedure can take about 5-15 minutes. 
Please do not remove your key untill end of operation</source>
        <translation>Die Aktualisierung kann etwa 5–15 Minuten dauern. 
Bitte ziehen Sie den Schlüssel bis zum Ende nicht ab</translation>
    </message>
    <message>
        <location line="+70"/>
        <source>Your Key is outdated. Do you want to update your Key?</source>
        <translation>Ihr Schlüssel ist veraltet. Möchten Sie Ihren Schlüssel aktualisieren?</translation>
    </message>
</context>
<context>
    <name>WebAccess</name>
    <message>
        <location filename="../network/web_access.cpp" line="+197"/>
        <source>Cannot download file %1 to the local system</source>
        <comment>Error message</comment>
        <translation>Die Datei %1 kann nicht auf das lokale System heruntergeladen werden</translation>
    </message>
</context>
<context>
    <name>Window Messages</name>
    <message>
        <location filename="../updates/application_downloader.cpp" line="+74"/>
        <source>Download</source>
        <translation>Herunterladen</translation>
    </message>
</context>
<context>
    <name>Window messages</name>
    <message>
        <location filename="../token/token_update.cpp" line="+14"/>
        <source>Updating token. Please wait</source>
        <translation>Der Schlüssel wird aktualisiert. Bitte warten</translation>
    </message>
    <message>
        <location filename="../updates/application_installer.cpp" line="+31"/>
        <source>Updating Zorvik Software</source>
        <translation>Zorvik-Software wird aktualisiert</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>The %2 will be closed in order to install the most recent %1 updates.</source>
        <translation>%2 wird geschlossen, um die neuesten Updates für %1 zu installieren.</translation>
    </message>
    <message>
        <location filename="../window/solutions_tab.cpp" line="+48"/>
        <source>Zorvik Software Installation</source>
        <translation>Installation der Zorvik-Software</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Downloading Zorvik Security Pack</source>
        <translation>Zorvik Security Pack wird heruntergeladen</translation>
    </message>
</context>
<context>
    <name>Window title</name>
    <message>
        <location filename="../window/dashboard_window.cpp" line="-279"/>
        <source>%2 version %1 %3</source>
        <translation>%2 Version %1 %3</translation>
    </message>
</context>
</TS>
