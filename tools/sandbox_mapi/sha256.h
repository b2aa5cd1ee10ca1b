// SHA-256 as FIPS 180-4 defines it, so that a document's bytes can be compared without keeping
// them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zentpost::fake_mapi::sandbox {

class Sha256 {
 public:
  void Add(std::string_view bytes);

  // The hash of all that was added, as 64 lower-case hexadecimal digits. Nothing can be added
  // later.
  [[nodiscard]] std::string Finish();

 private:
  void AddBlock(const unsigned char* block);

  std::array<std::uint32_t, 8> state_ = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                                         0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};
  std::string rest_;        // less than a block
  std::uint64_t size_ = 0;  // bytes added so far
};

[[nodiscard]] std::string Sha256Of(std::string_view bytes);

}  // namespace zentpost::fake_mapi::sandbox
