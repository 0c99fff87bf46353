#include "backend/web/api/compression.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <cstdlib>
#include <memory>
#include <new>

#include "backend/base/text.h"
#include "backend/platform/task.h"

namespace weir {

namespace {

constexpr std::size_t min_bytes = 1024;
// Less than a millisecond's work.
constexpr std::size_t part_bytes = 32 * 1024;
constexpr int gzip_window = 15 + 16;
constexpr int memory_level = 8;

/// A gzip text in the making.
class GzipText {
 public:
  GzipText() {
    if (::deflateInit2(&stream_, Z_BEST_SPEED, Z_DEFLATED, gzip_window, memory_level, Z_DEFAULT_STRATEGY) != Z_OK)
      throw std::bad_alloc();
  }
  ~GzipText() { ::deflateEnd(&stream_); }
  GzipText(const GzipText&) = delete;
  GzipText& operator=(const GzipText&) = delete;

  void add(std::string_view part, bool is_last) {
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(part.data()));
    stream_.avail_in = static_cast<uInt>(part.size());
    do {
      stream_.next_out = buffer_.data();
      stream_.avail_out = static_cast<uInt>(buffer_.size());
      ::deflate(&stream_, is_last ? Z_FINISH : Z_NO_FLUSH);
      text_.append(reinterpret_cast<const char*>(buffer_.data()), buffer_.size() - stream_.avail_out);
    } while (stream_.avail_out == 0);
  }
  std::string take() { return std::move(text_); }

 private:
  z_stream stream_{};
  std::array<Bytef, 16 * 1024> buffer_;
  std::string text_;
};

void mark_tag(Response& response) {
  for (auto& [name, value] : response.headers)
    if (name == "ETag" && value.ends_with('"')) value.insert(value.size() - 1, compressed_tag_suffix);
}

}  // namespace

bool accepts_gzip(std::string_view accept_encoding) {
  while (!accept_encoding.empty()) {
    const std::size_t end = std::min(accept_encoding.find(','), accept_encoding.size());
    const std::string_view coding = accept_encoding.substr(0, end);
    accept_encoding.remove_prefix(std::min(end + 1, accept_encoding.size()));
    const std::size_t parameters = std::min(coding.find(';'), coding.size());
    if (!boost::algorithm::iequals(trim(coding.substr(0, parameters)), "gzip")) continue;
    const std::size_t weight = coding.find("q=", parameters);
    return weight == std::string_view::npos || std::atof(std::string(coding.substr(weight + 2)).c_str()) > 0;
  }
  return false;
}

bool is_compressible(const Response& response) {
  const std::string& type = response.content_type;
  const bool is_text = type.starts_with("text/") || type.ends_with("json") || type.ends_with("yaml");
  const bool is_encoded =
      std::ranges::any_of(response.headers, [](const auto& h) { return h.first == "Content-Encoding"; });
  return is_text && !is_encoded && response.body.size() >= min_bytes && !response.is_live && !response.file;
}

Async<Response> compress(Response response) {
  const auto text = std::make_unique<GzipText>();
  for (std::size_t begin = 0; begin < response.body.size(); begin += part_bytes) {
    if (begin > 0) co_await yield_to_others();
    const std::string_view part = std::string_view(response.body).substr(begin, part_bytes);
    text->add(part, begin + part.size() == response.body.size());
  }
  std::string compressed = text->take();
  if (compressed.size() >= response.body.size()) co_return response;
  response.body = std::move(compressed);
  response.headers.emplace_back("Content-Encoding", "gzip");
  mark_tag(response);
  co_return response;
}

std::string decompress(std::string_view gzipped) {
  z_stream stream{};
  if (::inflateInit2(&stream, gzip_window) != Z_OK) throw std::bad_alloc();
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gzipped.data()));
  stream.avail_in = static_cast<uInt>(gzipped.size());
  std::string text;
  std::array<Bytef, 16 * 1024> buffer;
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = buffer.data();
    stream.avail_out = static_cast<uInt>(buffer.size());
    result = ::inflate(&stream, Z_NO_FLUSH);
    text.append(reinterpret_cast<const char*>(buffer.data()), buffer.size() - stream.avail_out);
  }
  ::inflateEnd(&stream);
  return text;
}

}  // namespace weir
