#include "ZaroAction.h"

// Here and not in the header, so that the class's table and type record exist once, in the library.
Replaceable::~Replaceable() = default;
