// The support API's answer to a support request.
#include "ticket_sender.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static TicketSender sender;
    sender.parseReply(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    return 0;
}
