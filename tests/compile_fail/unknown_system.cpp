#undef _WIN32
#undef __unix__
#include "platform/call.h"  // refused: neither Windows nor a Unix
