// Keyframe edits as row texts: the text a row would have with a key set or taken out at a
// frame. The parameter editor's key entries and the main window's transform keys both
// push these texts as ordinary row edits, so undo restores the keys exactly.
#pragma once

#include <string>

class Parameter;

// The row's present value as its field holds it (the evaluated number).
double fieldValue(const Parameter& row);
// The row's text with a key at `frame` holding `value`, added or replaced.
std::string textWithKey(const Parameter& row, double frame, double value);
// The row's text without its key within half a frame of `frame`; false when there is
// none. With no key left the row keeps the removed key's value as a plain number.
bool textWithoutKey(const Parameter& row, double frame, std::string& text);
