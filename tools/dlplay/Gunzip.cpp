#include "Gunzip.h"

#include <zlib.h>

namespace dlplay {
namespace {

constexpr unsigned char kGzipMagic[] = {0x1f, 0x8b};
// 15 window bits, plus 16: a gzip header and trailer rather than zlib's.
constexpr int kGzipWindowBits = 15 + 16;
constexpr size_t kInflateStep = 64 * 1024;

}  // namespace

bool LooksGzipped(const std::string& data) {
  return data.size() >= sizeof(kGzipMagic) && static_cast<unsigned char>(data[0]) == kGzipMagic[0] &&
         static_cast<unsigned char>(data[1]) == kGzipMagic[1];
}

bool Gunzip(const std::string& compressed, std::string* plain, std::string* error) {
  z_stream stream{};
  if (inflateInit2(&stream, kGzipWindowBits) != Z_OK) {
    *error = "cannot start inflating";
    return false;
  }
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
  stream.avail_in = static_cast<uInt>(compressed.size());
  plain->clear();
  int status = Z_OK;
  while (status == Z_OK) {
    size_t before = plain->size();
    plain->resize(before + kInflateStep);
    stream.next_out = reinterpret_cast<Bytef*>(&(*plain)[before]);
    stream.avail_out = static_cast<uInt>(kInflateStep);
    status = inflate(&stream, Z_NO_FLUSH);
    plain->resize(before + kInflateStep - stream.avail_out);
    if (status == Z_BUF_ERROR && stream.avail_in == 0) break;
  }
  std::string reason = stream.msg != nullptr ? stream.msg : "cut short";
  inflateEnd(&stream);
  if (status != Z_STREAM_END) {
    *error = "a gzip body that does not inflate (" + reason + ")";
    return false;
  }
  return true;
}

}  // namespace dlplay
