#undef __GNUC__
#include "platform/call.h"  // refused: the calling convention of Windows' libraries
