#include <gtest/gtest.h>

#include <string>

#include "Base/Sha256.h"

namespace downloader {
namespace {

std::string Digest(const std::string& text) {
  Sha256 hash;
  hash.Update(text);
  return hash.FinalHex();
}

TEST(Sha256Test, StandardVectors) {
  EXPECT_EQ(Digest(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Digest("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Digest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Sha256Test, PiecesOfAnySizeGiveTheDigestOfTheWhole) {
  const std::string million(1000000, 'a');
  Sha256 hash;
  size_t done = 0;
  for (size_t piece = 1; done < million.size(); piece = piece * 3 + 1) {
    size_t length = std::min(piece % 1000 + 1, million.size() - done);
    hash.Update(million.data() + done, length);
    done += length;
  }
  EXPECT_EQ(hash.FinalHex(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace
}  // namespace downloader
