// How two things are measured beside each other.
#pragma once
#include <algorithm>
#include <functional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench {

inline double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

struct Pair {
  double ours, bare;
};

// The medians of two measurements that are taken in turn, so that whatever else the machine does meets both. The one
// that goes first changes every time. Each returns its figure.
template<class Ours, class Bare> Pair Alternate(int rounds, Ours ours, Bare bare) {
  std::vector<double> our, their;
  for (int i = 0; i < rounds; ++i)
    for (bool first : {true, false})
      if (first == (i % 2 == 0))
        our.push_back(ours(i));
      else
        their.push_back(bare(i));
  return {Median(std::move(our)), Median(std::move(their))};
}

// Work in a process of its own, forked off at once. The result is a plain structure.
template<class Result> class Child {
public:
  explicit Child(const std::function<Result()>& work) {
    int ends[2];
    if (pipe(ends) != 0 || (child = fork()) < 0) throw std::runtime_error("no pipe or no process");
    if (child == 0) {
      close(ends[0]);
      int code = 1;
      try {
        const Result result = work();
        code = write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1;
      } catch (const std::exception& e) { fprintf(stderr, "%s\n", e.what()); }
      _exit(code);
    }
    close(ends[1]);
    from = ends[0];
  }
  Child(Child&& other) : child(std::exchange(other.child, -1)), from(std::exchange(other.from, -1)) {}
  ~Child() {
    if (child < 0) return;
    close(from);
    waitpid(child, nullptr, 0);
  }

  Result Get() {
    Result result;
    if (read(from, &result, sizeof result) != sizeof result)
      throw std::runtime_error("a measuring process failed");
    return result;
  }

private:
  pid_t child = -1;
  int from = -1;
};

} // namespace bench
