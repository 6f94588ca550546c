// A till that keeps nothing of a card: after every exchange, after the session and after the object is unloaded it wipes
// its own buffers and looks through all memory that it can write for what is left of one.
//
//   card_host OBJECT      requests on the standard input: two bytes of length, low byte first, and the request
//
// Prints one line for each look: how many marks it found, the calls before it, and for the first mark the mapping that
// it was in.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include "../cardmarks.h"
#include "zat_ms.h"

namespace {

// Static, so that they can be wiped as a whole; and no copy of them is made anywhere.
char request[4096], answer[ZAT_MS_BUFFER], maps[1 << 18];

bool ReadExactly(void* to, size_t size) {
  for (size_t done = 0; done < size;) {
    const ssize_t n = read(STDIN_FILENO, static_cast<char*>(to) + done, size - done);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

void Say(const char* text, int length) {
  if (write(STDOUT_FILENO, text, static_cast<size_t>(length)) != length) _exit(3);
}

struct Found {
  long count = 0;
  std::string_view mark;
  char where[64] = "";
};

// Apart from the loop, where the compiler would know the marks and keep their bytes on the stack, to be found there.
__attribute__((noipa, no_sanitize_address)) bool Is(const char* at, const std::string_view& mark) {
  return memcmp(at, mark.data(), mark.size()) == 0;
}

__attribute__((no_sanitize_address)) void LookThrough(const char* from, const char* to, const char* name,
                                                      Found& found) {
  for (const char* at = from; at + 24 <= to; ++at) {
    if (*at != '7' && *at != '3' && *at != '8' && *at != '=' && *at != 'D' && *at != '0') continue;
    for (std::string_view mark : trust::kMarks) {
      if (!Is(at, mark)) continue;
      if (found.count++ == 0) {
        found.mark = mark;
        snprintf(found.where, sizeof found.where, "%.40s+%zx", name, static_cast<size_t>(at - from));
      }
    }
  }
}

// All mappings that can be read and written, heap, stacks and the data of every library among them.
void Look(const char* when, int calls) {
  const int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  size_t size = 0;
  for (ssize_t n = 1; n > 0 && size < sizeof maps - 1; size += static_cast<size_t>(n > 0 ? n : 0))
    n = read(fd, maps + size, sizeof maps - 1 - size);
  close(fd);
  maps[size] = 0;
  Found found;
  for (char *line = maps, *next; (next = strchr(line, '\n')); line = next + 1) {
    *next = 0;
    uintptr_t from = 0, to = 0;
    char mode[8] = "";
    int name = 0;
    if (sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %7s %*s %*s %*s %n", &from, &to, mode, &name) < 3) continue;
    if (mode[0] != 'r' || mode[1] != 'w') continue;
    LookThrough(reinterpret_cast<const char*>(from), reinterpret_cast<const char*>(to),
                name ? line + name : "?", found);
  }
  char text[256];
  Say(text, snprintf(text, sizeof text, "%ld %d %s %s %.*s\n", found.count, calls, when,
                     found.count ? found.where : "-", static_cast<int>(found.mark.size()),
                     found.count ? found.mark.data() : ""));
}

// One request up to the end of its exchange: how many calls it took.
int Exchange(zat_ms_do_fn call, void* session) {
  int calls = 1, result = call(session, request, answer, nullptr, nullptr);
  explicit_bzero(request, sizeof request);
  for (; result == ZAT_MS_MORE && calls < 500; ++calls) {
    explicit_bzero(answer, sizeof answer);
    result = call(session, nullptr, answer, nullptr, nullptr);
  }
  explicit_bzero(answer, sizeof answer);
  return calls;
}

} // namespace

int main(int argc, char** argv) {
  void* object = argc > 1 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
  if (!object) return 2;
  const auto create = reinterpret_cast<zat_ms_create_fn>(dlsym(object, "eftp_create"));
  const auto call = reinterpret_cast<zat_ms_do_fn>(dlsym(object, "eftp_do"));
  const auto destroy = reinterpret_cast<zat_ms_destroy_fn>(dlsym(object, "eftp_destroy"));
  if (!create || !call || !destroy) return 2;
  void* session = create(nullptr);
  unsigned char length[2];
  while (ReadExactly(length, sizeof length)) {
    const size_t size = length[0] | static_cast<size_t>(length[1]) << 8;
    if (size > sizeof request || !ReadExactly(request, size)) return 2;
    Look("exchange", Exchange(call, session));
  }
  destroy(session);
  Look("destroyed", 0);
  dlclose(object);
  Look("unloaded", 0);
  return 0;
}
