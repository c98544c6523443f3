// libqvtoken_gui: the key answers a key-service ticket; the answer is presented to the key
// service, whose result code reaches the caller once through its callback.
#include "qvtoken_gui.h"

#include "https_client.h"
#include "platform_files.h"
#include "key_answer.h"
#include "qvlogger.h"

#include <json/json.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>


namespace {

const char* const kComponent = "qvtoken_gui";

std::string envOr(const char* name, const std::string& fallback)
{
    const char* v = zorvik_platform::environment(name);
    return v ? std::string(v) : fallback;
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

// Reads "code" (an integer) and "text" (a string, may be missing) from the key service's
// answer {"code": 200, "text": "..."}; false for any other shape.
bool parseAnswer(const std::string& body, int* code, std::string* text)
{
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    try {
        // jsoncpp throws rather than answers false for nesting beyond its stack limit.
        if (!reader->parse(body.data(), body.data() + body.size(), &root, nullptr) || !root.isObject())
            return false;
    } catch (const Json::Exception&) {
        return false;
    }
    const Json::Value& c = root["code"];
    const Json::Value& t = root["text"];
    if (!c.isInt() || !(t.isNull() || t.isString()))
        return false;
    *code = c.asInt();
    *text = t.isString() ? t.asString() : std::string();
    return true;
}

// How long a release waits for a worker that is still talking to the key (the network
// part notices a cancellation within 100 ms; a card in the middle of an APDU does not).
constexpr std::chrono::seconds kReleaseWait(3);

// One authentication, shared by the instance and its worker thread: everything the worker
// touches once it may have been cancelled is in here.
struct Exchange {
    enum Stage { Working, CallingBack, Done };
    std::mutex mutex; // guards `stage`, and the decision to call back
    std::condition_variable stageChanged;
    Stage stage = Working;
    std::atomic<bool> cancelled{false};
};

struct Instance {
    std::shared_ptr<Exchange> exchange;
    std::thread worker;
};

void finish(Exchange& ex, int code, const std::string& text, qvtoken_gui_callback_t callback, void* context)
{
    std::unique_lock<std::mutex> lock(ex.mutex);
    if (!ex.cancelled) {
        ex.stage = Exchange::CallingBack;
        qvlogger_log(QVLOGGER_DEBUG, kComponent, "ticket authentication result %d", code);
        callback(code, text.c_str(), context);
    }
    ex.stage = Exchange::Done;
    ex.stageChanged.notify_all();
}

void runExchange(std::shared_ptr<Exchange> ex, std::string ticket, qvtoken_gui_callback_t callback, void* context)
{
    KeyAnswer answer;
    const bool answered = answerTicket(ticket, &answer);
    if (ex->cancelled)
        return finish(*ex, 0, std::string(), callback, context);
    if (!answered)
        return finish(*ex, QVTOKEN_GUI_NO_KEY, "No Vantrel answered the ticket", callback, context);

    const std::string body = "ticket=" + formEncode(ticket) + "&serial=" + answer.serialHex +
                             "&answer=" + answer.proofHex;
    const auto reply = qvtoken_gui::httpsPost(keyServiceUrl() + "/a/auth-ticket/",
                                              "application/x-www-form-urlencoded", body, timeoutMs(), ex->cancelled);
    int code = QVTOKEN_GUI_BAD_REPLY;
    std::string text;
    switch (reply.outcome) {
    case qvtoken_gui::HttpsResult::Cancelled:
        break; // released: finish() calls nobody back
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
    finish(*ex, code, text, callback, context);
}

// Cancels the instance's exchange and ends its worker. A callback under way is waited for,
// however long it takes; a worker still busy with the key after kReleaseWait is left to end
// by itself, touching nothing but its Exchange once it sees the cancellation.
void stopWorker(Instance& inst)
{
    if (!inst.worker.joinable())
        return;
    Exchange& ex = *inst.exchange;
    if (inst.worker.get_id() == std::this_thread::get_id()) {
        // Released from its own callback: the worker ends as soon as the callback returns.
        ex.cancelled = true;
        inst.worker.detach();
        return;
    }
    std::unique_lock<std::mutex> lock(ex.mutex);
    ex.cancelled = true;
    const auto done = [&] { return ex.stage == Exchange::Done; };
    if (!ex.stageChanged.wait_for(lock, kReleaseWait, done) && ex.stage == Exchange::CallingBack)
        ex.stageChanged.wait(lock, done);
    if (ex.stage == Exchange::Done) {
        lock.unlock();
        inst.worker.join();
        return;
    }
    lock.unlock();
    qvlogger_log(QVLOGGER_WARNING, kComponent, "the key has not finished answering a cancelled ticket; "
                                               "its worker ends on its own");
    inst.worker.detach();
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
    if (!inst || !ticket || !callback)
        return -1;
    if (inst->exchange) {
        // From its own callback the exchange is still under way (and holds its mutex).
        if (inst->worker.get_id() == std::this_thread::get_id())
            return -1;
        std::unique_lock<std::mutex> lock(inst->exchange->mutex);
        if (inst->exchange->stage != Exchange::Done)
            return -1;
        lock.unlock();
        inst->worker.join();
    }
    inst->exchange = std::make_shared<Exchange>();
    try {
        inst->worker = std::thread(runExchange, inst->exchange, std::string(ticket), callback, context);
    } catch (const std::system_error&) {
        inst->exchange.reset();
        return -1;
    }
    return 0;
}

extern "C" void qvtoken_gui_release_instance(qvtoken_gui_instance_t instance)
{
    auto* inst = static_cast<Instance*>(instance);
    if (!inst)
        return;
    stopWorker(*inst);
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
