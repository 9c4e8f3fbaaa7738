#include <gtest/gtest.h>

#include <zlib.h>

#include <string>

#include "AesCbcDecryptor.h"
#include "Gunzip.h"
#include "HlsPlaylist.h"

namespace dlplay {
namespace {

AesBlock Block(const std::string& hex) {
  AesBlock block{};
  for (size_t i = 0; i < block.size(); ++i) {
    block[i] = static_cast<uint8_t>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
  }
  return block;
}

std::string Bytes(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

std::string Decrypt(const AesBlock& key, const AesBlock& iv, const std::string& cipher, size_t pieceSize,
                    bool* padded) {
  AesCbcDecryptor decryptor(key, iv);
  std::string plain;
  for (size_t at = 0; at < cipher.size(); at += pieceSize) {
    std::string piece = cipher.substr(at, pieceSize);
    decryptor.Update(reinterpret_cast<const uint8_t*>(piece.data()), piece.size(), &plain);
  }
  *padded = decryptor.Finish(&plain);
  return plain;
}

const AesBlock kKey = Block("2b7e151628aed2a6abf7158809cf4f3c");

// The first two cipher blocks are the published CBC-AES128 vector; the third is its padding block.
TEST(AesCbcDecryptorTest, KnownVectorInAnyPieceSizeWithPaddingRemoved) {
  const std::string cipher = Bytes(
      "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b255e21d7100b988ffec32feeafaf23538");
  const std::string expected = Bytes("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
  for (size_t pieceSize : {1u, 7u, 16u, 17u, 48u}) {
    bool padded = false;
    EXPECT_EQ(Decrypt(kKey, Block("000102030405060708090a0b0c0d0e0f"), cipher, pieceSize, &padded), expected)
        << pieceSize;
    EXPECT_TRUE(padded);
  }
}

TEST(AesCbcDecryptorTest, SequenceNumberIvAndBadPadding) {
  HlsKey key;
  key.method = HlsKey::Method::kAes128;
  const std::string cipher = Bytes("f935ea89ac5da242174b915d443dff14");
  bool padded = false;
  EXPECT_EQ(Decrypt(kKey, key.IvFor(42), cipher, 16, &padded), "hello, segment");
  EXPECT_TRUE(padded);
  // The wrong IV only garbles the first block; the wrong key breaks the padding.
  Decrypt(Block("00000000000000000000000000000000"), key.IvFor(42), cipher, 16, &padded);
  EXPECT_FALSE(padded);
  // A segment cut inside a block.
  Decrypt(kKey, key.IvFor(42), cipher.substr(0, 10), 16, &padded);
  EXPECT_FALSE(padded);
}

TEST(GunzipTest, InflatesWhatGzipMadeAndRefusesCutBodies) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += "#EXTINF:2,\nsegment" + std::to_string(i) + ".ts\n";
  z_stream stream{};
  ASSERT_EQ(deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string compressed(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(&text[0]);
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(&compressed[0]);
  stream.avail_out = static_cast<uInt>(compressed.size());
  ASSERT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  compressed.resize(stream.total_out);
  deflateEnd(&stream);

  EXPECT_TRUE(LooksGzipped(compressed));
  EXPECT_FALSE(LooksGzipped(text));
  std::string plain;
  std::string error;
  ASSERT_TRUE(Gunzip(compressed, &plain, &error)) << error;
  EXPECT_EQ(plain, text);
  EXPECT_FALSE(Gunzip(compressed.substr(0, compressed.size() / 2), &plain, &error));
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace dlplay
