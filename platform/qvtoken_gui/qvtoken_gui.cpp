// libqvtoken_gui: the key answers a key-service ticket; the answer is presented to the key
// service, whose result code reaches the caller once through its callback.
#include "qvtoken_gui.h"

#include "https_client.h"
#include "platform_files.h"
#include "key_answer.h"
#include "qvlogger.h"

#include <atomic>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>


namespace {

const char* const kComponent = "qvtoken_gui";

std::string envOr(const char* name, const std::string& fallback)
{
    const char* v = std::getenv(name);
    return (v && *v) ? std::string(v) : fallback;
}

std::string keyServiceUrl()
{
    std::string url = envOr("ZORVIK_KEYSERVICE_URL", "https://ks.zorvik.com");
    while (!url.empty() && url.back() == '/')
        url.pop_back();
    return url;
}

int timeoutMs()
{
    const int ms = std::atoi(envOr("ZORVIK_KS_TIMEOUT_MS", "30000").c_str());
    return ms > 0 ? ms : 30000;
}

std::string formEncode(const std::string& s)
{
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : s) {
        if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

// Reads "code" and "text" from the key service's small JSON answer
// {"code": 200, "text": "..."}; false when they are not there.
bool parseAnswer(const std::string& body, int* code, std::string* text)
{
    const auto c = body.find("\"code\"");
    if (c == std::string::npos)
        return false;
    const auto colon = body.find(':', c);
    if (colon == std::string::npos)
        return false;
    char* end = nullptr;
    const long value = std::strtol(body.c_str() + colon + 1, &end, 10);
    if (end == body.c_str() + colon + 1)
        return false;
    *code = static_cast<int>(value);
    text->clear();
    const auto t = body.find("\"text\"");
    if (t != std::string::npos) {
        auto q = body.find('"', body.find(':', t) + 1);
        if (q != std::string::npos) {
            for (++q; q < body.size() && body[q] != '"'; ++q) {
                if (body[q] == '\\' && q + 1 < body.size())
                    ++q;
                *text += body[q];
            }
        }
    }
    return true;
}

// Shared between the instance and its worker thread, which may outlive a release.
struct Exchange {
    std::mutex callbackMutex;
    std::atomic<bool> cancelled{false};
    std::thread::id worker;
};

struct Instance {
    std::shared_ptr<Exchange> exchange;
};

void runExchange(std::shared_ptr<Exchange> ex, std::string ticket, qvtoken_gui_callback_t callback, void* context)
{
    int code = QVTOKEN_GUI_BAD_REPLY;
    std::string text;

    KeyAnswer answer;
    if (!answerTicket(ticket, &answer)) {
        code = QVTOKEN_GUI_NO_KEY;
        text = "No Vantrel answered the ticket";
    } else {
        const std::string body = "ticket=" + formEncode(ticket) + "&serial=" + answer.serialHex +
                                 "&answer=" + answer.proofHex;
        const auto reply = qvtoken_gui::httpsPost(keyServiceUrl() + "/a/auth-ticket/",
                                                  "application/x-www-form-urlencoded", body, timeoutMs(), ex->cancelled);
        switch (reply.outcome) {
        case qvtoken_gui::HttpsResult::Cancelled:
            return; // released: no callback
        case qvtoken_gui::HttpsResult::TimedOut:
            code = QVTOKEN_GUI_TIMEOUT;
            text = "Timeout waiting for the key service";
            break;
        case qvtoken_gui::HttpsResult::NetworkError:
            code = QVTOKEN_GUI_NETWORK;
            text = reply.error;
            break;
        case qvtoken_gui::HttpsResult::Ok:
            if (!parseAnswer(reply.body, &code, &text)) {
                code = reply.status == 200 ? QVTOKEN_GUI_BAD_REPLY : reply.status;
                text = "Unexpected key service answer, HTTP " + std::to_string(reply.status);
            }
            break;
        }
    }
    qvlogger_log(QVLOGGER_DEBUG, kComponent, "ticket authentication result %d", code);
    std::lock_guard<std::mutex> lock(ex->callbackMutex);
    if (!ex->cancelled)
        callback(code, text.c_str(), context);
}

// Parameter storage: 8 per user, 9 system-wide.
std::string paramFile(int param)
{
    if (param == QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM)
        return envOr("ZORVIK_SYSTEM_CONFIG_DIR", "/etc/zorvik") + "/qvtoken_gui.conf";
    const std::string dir = zorvik_platform::userConfigDir();
    return dir.empty() ? dir : dir + "/qvtoken_gui.conf";
}

bool readParam(int param, int* value)
{
    const std::string key = "param" + std::to_string(param) + "=";
    for (const std::string& line : zorvik_platform::readLines(paramFile(param))) {
        if (line.compare(0, key.size(), key) == 0) {
            *value = std::atoi(line.c_str() + key.size());
            return true;
        }
    }
    return false;
}

bool writeParam(int param, int value)
{
    const std::string path = paramFile(param);
    return !path.empty() &&
           zorvik_platform::writeFileAtomically(path, "param" + std::to_string(param) + "=" + std::to_string(value) + "\n");
}

} // namespace

extern "C" qvtoken_gui_instance_t qvtoken_gui_create_instance(void)
{
    return new Instance;
}

extern "C" int qvtoken_gui_authenticate(qvtoken_gui_instance_t instance, const char* ticket, int flags,
                                        qvtoken_gui_callback_t callback, void* context)
{
    (void)flags;
    auto* inst = static_cast<Instance*>(instance);
    if (!inst || !ticket || !callback || inst->exchange)
        return -1;
    inst->exchange = std::make_shared<Exchange>();
    std::thread worker(runExchange, inst->exchange, std::string(ticket), callback, context);
    inst->exchange->worker = worker.get_id();
    worker.detach();
    return 0;
}

extern "C" void qvtoken_gui_release_instance(qvtoken_gui_instance_t instance)
{
    auto* inst = static_cast<Instance*>(instance);
    if (!inst)
        return;
    if (inst->exchange) {
        inst->exchange->cancelled = true;
        // Waits for a callback that is running right now, unless it is the caller.
        if (inst->exchange->worker != std::this_thread::get_id())
            std::lock_guard<std::mutex> lock(inst->exchange->callbackMutex);
    }
    delete inst;
}

extern "C" int qvtoken_gui_get_data(qvtoken_gui_instance_t, int param, void* data, int size)
{
    if (!data || size < static_cast<int>(sizeof(int)))
        return -1;
    if (param != QVTOKEN_GUI_PARAM_SIMPLE_CODES && param != QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM)
        return -1;
    int value = 0;
    if (!readParam(param, &value))
        return -1;
    // "No choice of the user" reads as unset, so the caller falls back to the system default.
    if (param == QVTOKEN_GUI_PARAM_SIMPLE_CODES && value == 2)
        return -1;
    std::memcpy(data, &value, sizeof value);
    return 0;
}

extern "C" int qvtoken_gui_set_data(qvtoken_gui_instance_t, int param, const void* data, int size)
{
    if (!data || size < static_cast<int>(sizeof(int)))
        return -1;
    if (param != QVTOKEN_GUI_PARAM_SIMPLE_CODES && param != QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM)
        return -1;
    int value = 0;
    std::memcpy(&value, data, sizeof value);
    return writeParam(param, value) ? 0 : -1;
}
