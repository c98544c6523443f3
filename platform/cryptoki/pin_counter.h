// Wrong user PINs of one token, counted across processes, for backing modules that never
// lock a PIN themselves (SoftHSM2 only warns). A real Vantrel counts on the card.
#pragma once

#include <string>

namespace zcryptoki {

class PinCounter
{
public:
    // `tokenKey` names the token (its serial number); `limit` 0 switches counting off.
    void configure(const std::string& tokenKey, int limit);
    bool enabled() const { return limit_ > 0 && !path_.empty(); }
    int limit() const { return limit_; }
    int failures() const;
    bool locked() const { return enabled() && failures() >= limit_; }
    // Returns the failures after counting this one.
    int recordFailure();
    void reset();

private:
    // Applies `change` to the stored count under an exclusive file lock; returns the result.
    int update(int (*change)(int));
    // The counter file, refused (and logged) when it is a link or not our own.
    int open(int flags) const;

    std::string path_;
    int limit_ = 0;
};

// $ZORVIK_CRYPTOKI_STATE_DIR, else ${XDG_STATE_HOME:-$HOME/.local/state}/zorvik/cryptoki;
// /var/lib/zorvik/cryptoki in a set-uid or set-gid program.
std::string stateDirectory();

} // namespace zcryptoki
