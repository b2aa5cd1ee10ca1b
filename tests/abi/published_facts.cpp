#include <windows.h>
// After windows.h, whose types they use.
#include <mapix.h>
// Needs the types of the one above.
#include <mapicode.h>
#include <mapiform.h>
#include <mapitags.h>
#include <mapiutil.h>

#include "tests/abi/describe.h"
#include "tests/abi/facts.h"

namespace zentpost::abi {
namespace {

using SPropValueUnion = decltype(SPropValue::Value);
struct Holder {
  SizedSPropTagArray(3, tags);
};
using ThreeTags = decltype(Holder::tags);

}  // namespace

#define OURS_VALUE(name)
#define OURS_IDENTIFIER(name)
#define OURS_METHOD(interface_name, method)

Facts PublishedFacts() {
  return {
#include "tests/abi/facts.inc"
  };
}

}  // namespace zentpost::abi
