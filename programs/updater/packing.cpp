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

struct tPacking {
  const char* pccName;
  std::string_view begins;
  bool (*fWhole)(int fd);
};

constexpr tPacking kPackings[] = {
    {"xz",
     std::string_view("\xFD"
                      "7zXZ\0\0",
                      7),
     StreamWhole},
    {"gzip", "\x1F\x8B", GzipWhole},
    {"bzip2", "BZh", StreamWhole},
};

// The eighth byte of an xz stream names its check sum; 0 is "none".
constexpr size_t kXzCheck = 7;

const tPacking* Find(int fd) {
  char begin[8] = {};
  if (pread(fd, begin, sizeof begin, 0) != sizeof begin) return nullptr;
  for (const tPacking& row : kPackings)
    if (std::string_view(begin, sizeof begin).starts_with(row.begins))
      return row.fWhole == StreamWhole && *row.pccName == 'x' && begin[kXzCheck] == 0 ? nullptr : &row;
  return nullptr;
}

} // namespace

const char* PackingOf(int fd) {
  const tPacking* row = Find(fd);
  return row ? row->pccName : nullptr;
}

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
