#include "packing.h"
#include "updater.h"
#include <archive.h>
#include <archive_entry.h>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <zlib.h>

namespace zat {
namespace {

constexpr size_t kChunk = 1 << 16;

// libarchive skips the check sum at the end of a gzip stream; zlib's own reader does not.
bool GzipWhole(int fd) {
  const int own = dup(fd);
  gzFile file = own < 0 ? nullptr : gzdopen(own, "rb");
  if (!file) return own >= 0 && close(own) && false;
  std::string buffer(kChunk, '\0');
  int n = 1;
  while (n > 0) n = gzread(file, buffer.data(), kChunk);
  int error = Z_OK;
  const std::string text = gzerror(file, &error);
  const bool whole = gzclose(file) == Z_OK && n == 0 && error == Z_OK;
  return whole || Complain("damaged: %s", text.c_str());
}

// xz and bzip2: libarchive leaves the checking to their own libraries, which do it as the last byte goes by.
bool StreamWhole(int fd) {
  const std::unique_ptr<archive, int (*)(archive*)> reader(archive_read_new(), archive_read_free);
  AllowPackings(reader.get());
  archive_read_support_format_raw(reader.get());
  archive_entry* entry = nullptr;
  if (archive_read_open_fd(reader.get(), fd, kChunk) != ARCHIVE_OK ||
      archive_read_next_header(reader.get(), &entry) != ARCHIVE_OK)
    return Complain("damaged: %s", archive_error_string(reader.get()));
  std::string buffer(kChunk, '\0');
  la_ssize_t n = 1;
  while (n > 0) n = archive_read_data(reader.get(), buffer.data(), buffer.size());
  return n == 0 || Complain("damaged: %s", archive_error_string(reader.get()));
}

constexpr size_t kBegin = 8; // bytes of a file that tell its compression

struct tPacking {
  std::string_view begins;
  size_t lCheck; // the byte of the beginning that names the check sum, 0 being none; 0: there always is one
  bool (*fWhole)(int fd);
};

constexpr tPacking kPackings[] = {
    {{"\xFD\x37zXZ\0\0", 7}, 7, StreamWhole}, // xz
    {"\x1F\x8B", 0, GzipWhole},               // gzip
    {"BZh", 0, StreamWhole},                  // bzip2
};

const tPacking* Find(int fd) {
  char begin[kBegin] = {};
  if (pread(fd, begin, kBegin, 0) != kBegin) return nullptr;
  for (const tPacking& row : kPackings)
    if (std::string_view(begin, kBegin).starts_with(row.begins))
      return row.lCheck && begin[row.lCheck] == 0 ? nullptr : &row;
  return nullptr;
}

} // namespace

bool PackingWhole(int fd) {
  const tPacking* row = Find(fd);
  if (!row) return Complain("not compressed with xz, gzip or bzip2, or without a check sum");
  const bool whole = lseek(fd, 0, SEEK_SET) == 0 && row->fWhole(fd);
  return lseek(fd, 0, SEEK_SET) == 0 && whole;
}

void AllowPackings(archive* poReader) {
  archive_read_support_filter_xz(poReader);
  archive_read_support_filter_gzip(poReader);
  archive_read_support_filter_bzip2(poReader);
}

} // namespace zat
