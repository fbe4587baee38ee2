// Version stamps: texts of fixed width in the program file, which can be patched in place there.
#pragma once

#include <string>

enum version_mode {
    VERSION_FIELD = 0,  // the whole field
    VERSION_MARKED = 1, // what follows the "@(#)" mark
    VERSION_TEXT = 2,   // what follows the maker's name too (the product stamp only)
    VERSION_CHANGED = 3 // the text if it is no longer the one that a stamp begins with
};

// The product stamp. Only VERSION_CHANGED may give an empty text: the stamp is unchanged. A mode
// that is none of these counts as VERSION_FIELD. The blanks that fill the field are part of it.
std::string version_stamp(int mode);

// The stamps that others may fill in; modes VERSION_MARKED and VERSION_CHANGED.
std::string customer_stamp(int mode);
std::string directory_stamp(int mode);
std::string version_control_stamp(int mode);
