// The key service's answer to the key-status request, read as the key status does.
#include "json_reply.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const JsonReply root = JsonReply::parse(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    root.boolean("error", true);
    if (root.has("message")) {
        const JsonReply message = root.object("message");
        message.text("type", "UTF-8");
        message.text("status", "UTF-8");
        message.object("title").boolean("title");
    }
    root.wellFormed();
    return 0;
}
