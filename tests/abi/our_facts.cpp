#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"
#include "tests/abi/describe.h"
#include "tests/abi/facts.h"

namespace zentpost::abi {
namespace {

using ThreeTags = SizedSPropTagArray<3>;

struct Methods {
  virtual std::int32_t Unmarked(std::uint32_t) { return 0; }
  virtual std::int32_t PLATFORM_STDCALL Marked(std::uint32_t) { return 0; }

 protected:
  ~Methods() = default;
};

}  // namespace

#define OURS_VALUE VALUE
#define OURS_IDENTIFIER IDENTIFIER
#define OURS_METHOD METHOD

Facts OurFacts() {
  return {
#include "tests/abi/facts.inc"
  };
}

std::string SignatureOfUnmarkedMethod() {
  return DescribeMethod(&Methods::Unmarked);
}

std::string SignatureOfMarkedMethod() {
  return DescribeMethod(&Methods::Marked);
}

}  // namespace zentpost::abi
