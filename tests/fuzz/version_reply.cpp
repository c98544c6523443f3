// The update API's version reply, and the change log fetched after it.
#include "check_updates.h"
#include "web_access.h"
#include "zorvik_build.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = WebAccess::bodyText(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    QString version;
    QString address;
    if (Check_Updates::readVersionReply(text, version, address)) {
        Check_Updates::isNewerVersion(version, ZORVIK_VERSION);
        Check_Updates::isNewerVersion(ZORVIK_VERSION, version);
    }
    return 0;
}
