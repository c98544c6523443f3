// vantrel-sim: the bench's Vantrel key. Connecting to a vpcd reader slot inserts the key,
// ending the process removes it. See docs/vantrel-protocol.md.
#include "card_profile.h"
#include "vantrel_applet.h"
#include "vpcd_link.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

void note(const std::string& text)
{
    std::fprintf(stderr, "vantrel-sim: %s\n", text.c_str());
    std::fflush(stderr);
}

} // namespace

int main(int argc, char** argv)
{
    CardProfile profile;
    std::string error;
    bool help = false;
    if (!parseCardArguments(std::vector<std::string>(argv + 1, argv + argc), profile, error, help)) {
        if (help) {
            std::fputs(error.c_str(), stdout);
            return 0;
        }
        note(error);
        std::fputs(usageText().c_str(), stderr);
        return 2;
    }

    VantrelApplet applet(profile);
    VpcdLink link;
    long apduCount = 0;
    bool announcedWait = false;
    const std::string where = profile.host + ":" + std::to_string(profile.port);

    for (;;) {
        const VpcdLink::ConnectResult rc = link.connectTo(profile.host, profile.port, error);
        if (rc == VpcdLink::ConnectResult::Failed) {
            note("cannot reach the reader at " + where + ": " + error);
            return 1;
        }
        if (rc == VpcdLink::ConnectResult::Refused) {
            // No reader listens there (yet): the key waits to be taken by it.
            if (!profile.reconnect) {
                note("no reader at " + where);
                return 1;
            }
            if (!announcedWait) {
                note("waiting for the reader at " + where);
                announcedWait = true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        announcedWait = false;
        note("inserted into the reader at " + where + (profile.vantrel ? " (Vantrel " : " (plain card ") +
             profile.serialHex() + ")");
        applet.reset();

        std::vector<uint8_t> message;
        while (link.receive(message)) {
            if (message.empty())
                continue;
            if (message.size() == 1) {
                switch (message[0]) {
                case VpcdLink::GetAtr:
                    link.send(applet.atr());
                    break;
                case VpcdLink::PowerOff:
                case VpcdLink::PowerOn:
                case VpcdLink::Reset:
                    applet.reset();
                    break;
                default:
                    note("unknown control code " + std::to_string(message[0]));
                    break;
                }
                continue;
            }
            if (profile.dropAfter >= 0 && apduCount >= profile.dropAfter) {
                note("dropping the connection after " + std::to_string(apduCount) + " APDUs");
                link.close();
                return 0;
            }
            ++apduCount;
            if (profile.delayMs > 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(profile.delayMs));
            if (!link.send(applet.process(message)))
                break;
        }
        link.close();
        note("the reader at " + where + " went away");
        if (!profile.reconnect)
            return 0;
    }
}
