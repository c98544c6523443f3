// Is a Vantrel in one of the PC/SC readers?
#pragma once

namespace zcryptoki {

enum class CardState {
    Absent,  // no reader, no card, a card that is not a Vantrel, or no PC/SC service
    Present, // a card answered the selection of the Vantrel application
    Faulty,  // a card that looks like a Vantrel but does not answer properly
};

// Asks the readers now. A card is examined once per insertion; later calls only read the
// readers' states, so the question is cheap enough to ask before every operation.
CardState vantrelPresence();

// Drops the PC/SC context (module finalisation).
void releasePresence();

const char* cardStateName(CardState state);

} // namespace zcryptoki
