// The one place where the store that everybody uses is compiled.
#include "squeezet.h"

template class basic_squeezem<char>;
template class basic_squeezet<char>;
