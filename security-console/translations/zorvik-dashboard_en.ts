<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>Application messages</name>
    <message>
        <location filename="../app/process_helpers.cpp" line="+111"/>
        <location filename="../window/dashboard_window.cpp" line="+359"/>
        <location line="+27"/>
        <source>%1 message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/dashboard_window.cpp" line="-151"/>
        <source>Zorvik: Key available</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: Reader %1 found</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: SmartCard service error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Zorvik: No token found</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>New version of %1 is available for download.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Restart is required</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: Key available
%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Zorvik: Reader %1 found
%2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Zorvik: SmartCard service error
%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Zorvik: No token found
%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+97"/>
        <source>SmartCard Service error. Please restore your SmartCard service and then press ok to restart %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <source>%1 has been installed. 
Please restart your computer to enable all features.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Certificate info</name>
    <message>
        <location filename="../certstore/certificate_details_dialog.cpp" line="+37"/>
        <source>X509 Certificate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>X509 Certificate &lt;strong&gt;[Invalid]&lt;/strong&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/certificates_tab.cpp" line="+109"/>
        <source>Invalid Certificate</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>CertificateDetailsDialog</name>
    <message>
        <location filename="../certstore/certificate_details_dialog.ui" line="+6"/>
        <source>Certificate Details</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Public Certificate Information&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Certificate Type&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 ID&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 Label&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Issued To:&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+114"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Common Name (CN)&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-88"/>
        <location line="+114"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Organization (O)&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-88"/>
        <location line="+114"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Organization Unit (OU)&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-88"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Serial Number&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Issued By:&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+88"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Validity:&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Issued On&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Expires On&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&#xa0;&#xa0;&#xa0;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Alternative Names (SAN)&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Extended Key Usage&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Fingerprints:&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;SHA1 Fingerprint&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&amp;nbsp;&amp;nbsp;&amp;nbsp;&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;MD5 Fingerprint&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+28"/>
        <source>...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Close</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>CryptokiInterface</name>
    <message>
        <location filename="../certstore/cryptoki_interface.cpp" line="+215"/>
        <source>Cannot get certificate information: zorvik-cryptoki error.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+40"/>
        <source>Password request</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Please enter the password that was used to encrypt this certificate:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+63"/>
        <source>Incorrect key type = %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>No certificate found</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>OPENSSL error </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>invalid certificate file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Duplicate certificate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <location line="+39"/>
        <source>Password error %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-33"/>
        <source>Cannot login to token. %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Cannot install certificate. Return code %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+38"/>
        <source>Cannot delete certificate. %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>CryptokiStorage</name>
    <message>
        <location filename="../certstore/certificate_storage.cpp" line="+88"/>
        <source>Zorvik PIN Request</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Please enter PIN for your Vantrel:</source>
        <extracomment>dilaog message</extracomment>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+17"/>
        <location line="+5"/>
        <source>Invalid certificate</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DashboardNetworkManager</name>
    <message>
        <location filename="../network/dashboard_network_manager.cpp" line="+26"/>
        <source>Proxy config string user: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DashboardWindow</name>
    <message>
        <location filename="../window/dashboard_window.ui" line="+20"/>
        <location filename="../window/certificates_tab.cpp" line="+125"/>
        <location filename="../window/solutions_tab.cpp" line="+81"/>
        <location line="+98"/>
        <location line="+11"/>
        <location line="+33"/>
        <source>Zorvik Dashboard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+16"/>
        <location line="+1218"/>
        <source>Solutions</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-1209"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Zorvik Solutions&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;Secure by Zorvik&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>&lt;span style=&quot; font-size:12pt;&quot;&gt;Vaultry&lt;/span&gt;&lt;br/&gt;&lt;span style=&quot; font-size:10pt; color:#666666;&quot;&gt;Launch Vaultry&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+36"/>
        <source>User Guide</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-10"/>
        <source>&lt;span style=&quot; font-size:12pt;&quot;&gt;Relayon&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+33"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;Secure with Zorvik&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;img src=&quot;:/Icons/icons/openvpn.png&quot;/&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;span style=&quot; font-size:12pt;&quot;&gt;OpenVPN &lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Add a connection...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:12pt; font-weight:600;&quot;&gt;How to Secure&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation type="unfinished"></translation>
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
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-128"/>
        <source>Firefox</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Thunderbird</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Windows Logon</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Juniper VPN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>SharePoint</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>OpenVPN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Outlook and OWA</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+41"/>
        <location line="+824"/>
        <source>Help</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-808"/>
        <source>Smartphone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&lt;html&gt;&lt;head/&gt;&lt;body&gt;&lt;p&gt;&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Smartphone Token&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Scan the QR code with the Zorvik app on your smartphone.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+28"/>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <location line="+764"/>
        <source>Certificates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-738"/>
        <location filename="../window/dashboard_window.cpp" line="-339"/>
        <source>Please present Vantrel to access the available security certificates.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+49"/>
        <source>Please wait while the certificate information is being obtained.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+43"/>
        <source>&lt;span style=&quot; font-size:14pt; font-weight:600;&quot;&gt;Available Certificates&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Certificate Name&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+31"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Issued By&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+31"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Expire Date&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+31"/>
        <source>&lt;span style=&quot; font-size:11pt; font-weight:600;&quot;&gt;Delete &lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+46"/>
        <source>&lt;a href=&apos;import&apos;&gt;&lt;img src=&apos;:/Icons/images/import_cert.png&apos;/&gt;&lt;/a&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>&lt;span style=&quot; font-size:11pt;&quot;&gt;Import a new certificate&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <location line="+80"/>
        <source>&lt;a href=&apos;refresh&apos;&gt;&lt;img src=&apos;:/Icons/images/refresh.png&apos;/&gt;&lt;/a&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-67"/>
        <source>&lt;span style=&quot; font-size:11pt;&quot;&gt;Refresh&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <location line="+434"/>
        <source>Key Status</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-428"/>
        <source>&lt;a&gt;&lt;img src=&apos;:/Icons/images/new.png&apos;/&gt;&lt;/a&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <location filename="../window/key_status_tab.cpp" line="+15"/>
        <source>Gathering status data - please wait.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+34"/>
        <source>&lt;a href=&apos;refresh&apos; style=&quot;color: #1d86c7; text-decoration: none;&quot;&gt;Refresh&lt;/a&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+28"/>
        <source>&lt;b&gt;General Information:&lt;/b&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Key Type</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Key Name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+17"/>
        <source>&lt;b&gt;Internal Technical Information:&lt;/b&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>GetInfo Status:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Smartcard ATR:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+20"/>
        <location line="+37"/>
        <source>Network:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-6"/>
        <location line="+236"/>
        <source>Advanced</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-224"/>
        <source>Enable SSL encryption</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Configuration</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Simple access codes:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>Proxy</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Use proxy to connect Zorvik services</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Import from IE</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Address:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Port:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Smartcard removal behavior</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Zorvik credential provider</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>WARNING: This setting will apply only after reboot</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Show all PKCS containers</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+29"/>
        <source>File</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>View</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Ctrl+Q</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Exit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>F5</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <location filename="../window/dashboard_window.cpp" line="+290"/>
        <location line="+6"/>
        <source>Refresh</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Ctrl+2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Ctrl+1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Ctrl+3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Ctrl+4</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Dashboard Help</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Contact support</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>About</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Check for updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Vantrel Lite</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/advanced_tab.cpp" line="+55"/>
        <source>Writing proxy settings:%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Error writing user proxy settings %1 code=%2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Error writing system proxy settings %1 code=%2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>System Default</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Allow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Disallow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>System default</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source> (Allow)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source> (Disallow)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/certificates_tab.cpp" line="-69"/>
        <source>Confirm %1 deletion</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Are you sure you want to delete:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1

You will not be able to identify yourself with this %2 once it has been deleted.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+25"/>
        <source>Open certificate file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>PKCS12 files (*.pfx *.p12);;All files (*.*)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+41"/>
        <source>Installing certificate. Please wait</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/dashboard_window.cpp" line="-60"/>
        <source>Click the &quot;Refresh&quot; button for current Key status.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+52"/>
        <location line="+6"/>
        <source>Import a new certificate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/key_status_tab.cpp" line="+66"/>
        <source>No Key present.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../window/solutions_tab.cpp" line="-153"/>
        <source>Configuring OpenVPN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Please present your Vantrel to configure OpenVPN.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>%1 was not installed properly. Do you wish to reinstall %2?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Zorvik security certificates support for Mozilla Firefox</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&lt;p&gt;You should have Mozilla Firefox installed to enable Zorvik security certificates support.&lt;p&gt;Please download and install the program here: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Secure email support for Mozilla Thunderbird</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&lt;p&gt;You should have Mozilla Thunderbird installed to enable secure email.&lt;p&gt;Please download and install the program here: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Zorvik support for OpenVPN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&lt;p&gt;You should have OpenVPN installed to enable secure VPN.&lt;p&gt;Please download and install the program here: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <source>%1 message</source>
        <comment>Application messages</comment>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Cannot download Zorvik Installation Package. Please try again later or contact Zorvik support</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+35"/>
        <source>You already have the latest version of Zorvik Security Pack installed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>A new version %1 of Zorvik Security Pack is available. Do you want to install it?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>About %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Version %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Dialog titles</name>
    <message>
        <location filename="../support/report_error.cpp" line="+21"/>
        <source>%1 Error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../token/token_update.cpp" line="+85"/>
        <source>%1: Update ZORVIK Key</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Zorvik Dashboard</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Error message</name>
    <message>
        <location filename="../certstore/cryptoki_interface.cpp" line="+11"/>
        <source>Internal Key error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Object not found on key</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Incorrect PIN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Key blocked</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Your Vantrel is needed to display your certificates. Insert your Vantrel.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>The authentication server is not responding.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Key was disabled by user</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Your Vantrel does not appear to be responding correctly. Try removing and reinserting the Vantrel. Contact support if the issue continues. Error code %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>InformationDialog</name>
    <message>
        <location filename="../updates/information_dialog.cpp" line="+29"/>
        <source>Save</source>
        <comment>Button text</comment>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>OpenVPNDialog</name>
    <message>
        <location filename="../integrations/openvpn_dialog.cpp" line="+30"/>
        <source>Name:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Address:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Port:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>CA certificate:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Certificate:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+31"/>
        <source>Select File</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>RSA Keypair info</name>
    <message>
        <location filename="../certstore/rsa_key_details_dialog.cpp" line="+20"/>
        <source>RSA Keypair</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>RsaKeyDetailsDialog</name>
    <message>
        <location filename="../certstore/rsa_key_details_dialog.ui" line="+6"/>
        <source>RSA Keypair Details</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Type&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 ID&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;PKCS#11 Label&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Modulus:&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+26"/>
        <source>&lt;span style=&quot; font-size:10pt; font-weight:600;&quot;&gt;Exponent:&lt;/span&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+35"/>
        <source>Close</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>SingleApplication</name>
    <message>
        <location filename="../app/single_application.cpp" line="+32"/>
        <location line="+36"/>
        <source>ERROR:read_timer already exisit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-12"/>
        <source>Unable to create shared memory segment.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Warning messages</name>
    <message>
        <location filename="../support/report_error.cpp" line="+1"/>
        <source>The application encountered a critical problem and will be closed immediately.
Please contact Zorvik support if the problem remains.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../token/token_update.cpp" line="-83"/>
        <source>Update procedure can take about 5-15 minutes. 
Please do not remove your key untill end of operation</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+70"/>
        <source>Your Key is outdated. Do you want to update your Key?</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>WebAccess</name>
    <message>
        <location filename="../network/web_access.cpp" line="+189"/>
        <source>Cannot download file %1 to the local system</source>
        <comment>Error message</comment>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Window messages</name>
    <message>
        <location filename="../token/token_update.cpp" line="+14"/>
        <source>Updating token. Please wait</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Window title</name>
    <message>
        <location filename="../window/dashboard_window.cpp" line="-271"/>
        <source>%2 version %1 %3</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
