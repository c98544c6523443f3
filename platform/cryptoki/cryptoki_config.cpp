#include "cryptoki_config.h"

#include "platform_files.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#ifndef ZORVIK_DEFAULT_BACKEND
#define ZORVIK_DEFAULT_BACKEND "/usr/lib/x86_64-linux-gnu/opensc-pkcs11.so"
#endif
#ifndef ZORVIK_SYSTEM_CONFIG
#define ZORVIK_SYSTEM_CONFIG "/etc/zorvik/cryptoki.conf"
#endif

namespace zcryptoki {

namespace {

std::string trim(const std::string& s)
{
    const auto b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos)
        return {};
    const auto e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

bool readFile(const std::string& path, std::string& text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream ss;
    ss << in.rdbuf();
    text = ss.str();
    return true;
}

std::string userConfigPath()
{
    const std::string dir = zorvik_platform::userConfigDir();
    return dir.empty() ? dir : dir + "/cryptoki.conf";
}

} // namespace

std::string defaultBackend()
{
    return ZORVIK_DEFAULT_BACKEND;
}

bool envFlag(const char* name)
{
    const char* v = zorvik_platform::environment(name);
    return v && std::string(v) != "0";
}

void parseConfig(const std::string& text, const std::string& origin, Config& config)
{
    std::istringstream in(text);
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        const auto hash = line.find('#');
        if (hash != std::string::npos)
            line.erase(hash);
        line = trim(line);
        if (line.empty())
            continue;
        const auto eq = line.find('=');
        const std::string key = eq == std::string::npos ? std::string() : trim(line.substr(0, eq));
        const std::string value = eq == std::string::npos ? std::string() : trim(line.substr(eq + 1));
        const std::string where = origin + ":" + std::to_string(number);
        if (key == "backend" && !value.empty()) {
            config.backend = value;
            config.backendFrom = origin;
        } else if (key == "token-label") {
            config.tokenLabel = value;
        } else if (key == "pin-retries") {
            char* end = nullptr;
            errno = 0;
            const long n = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || errno || n < 0 || n > 100)
                config.warnings.push_back(where + ": pin-retries needs a number from 0 to 100, line ignored");
            else
                config.pinRetries = static_cast<int>(n);
        } else {
            config.warnings.push_back(where + ": not understood, line ignored");
        }
    }
}

Config loadConfig()
{
    Config config;
    config.backend = defaultBackend();
    config.backendFrom = "default";
    for (const std::string& path : {std::string(ZORVIK_SYSTEM_CONFIG), userConfigPath()}) {
        std::string text;
        if (!path.empty() && readFile(path, text))
            parseConfig(text, path, config);
    }
    if (const char* extra = zorvik_platform::environment("ZORVIK_CRYPTOKI_CONF")) {
        std::string text;
        if (readFile(extra, text))
            parseConfig(text, extra, config);
        else
            config.warnings.push_back(std::string("cannot read ZORVIK_CRYPTOKI_CONF file ") + extra);
    }
    if (const char* backend = zorvik_platform::environment("ZORVIK_CRYPTOKI_BACKEND")) {
        config.backend = backend;
        config.backendFrom = "ZORVIK_CRYPTOKI_BACKEND";
    }
    config.noCards = envFlag("ZORVIK_CRYPTOKI_NO_CARDS");
    return config;
}

} // namespace zcryptoki
