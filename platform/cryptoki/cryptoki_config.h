// Where the module finds its backing module and how it treats the key's token.
#pragma once

#include <string>
#include <vector>

namespace zcryptoki {

struct Config
{
    std::string backend;               // path of the backing PKCS#11 module
    std::string backendFrom;           // where that path came from, for the log
    std::string tokenLabel;            // empty: the backing module's first initialised token
    int pinRetries = 3;                // 0: the backing module alone decides about locking
    bool noCards = false;              // ZORVIK_CRYPTOKI_NO_CARDS: the token is there without a Vantrel
    std::vector<std::string> warnings; // lines of the files that were not understood
};

// The default backing module: OpenSC, for real cards.
std::string defaultBackend();

// Reads /etc/zorvik/cryptoki.conf, $XDG_CONFIG_HOME/zorvik/cryptoki.conf (or
// ~/.config/zorvik/cryptoki.conf), then $ZORVIK_CRYPTOKI_CONF, later keys winning, then the
// environment overrides.
Config loadConfig();

// Applies the "key = value" lines of `text` to `config`; `origin` names the file in warnings.
void parseConfig(const std::string& text, const std::string& origin, Config& config);

// True when the variable is set to something other than "" or "0".
bool envFlag(const char* name);

} // namespace zcryptoki
