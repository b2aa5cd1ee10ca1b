#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"
#include "tests/abi/describe.h"
#include "tests/abi/facts.h"

namespace zentpost::abi {

using ThreeTags = SizedSPropTagArray<3>;

#define OURS_VALUE VALUE
#define OURS_IDENTIFIER IDENTIFIER
#define OURS_METHOD METHOD

Facts OurFacts() {
  return {
#include "tests/abi/facts.inc"
  };
}

}  // namespace zentpost::abi
