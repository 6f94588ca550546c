// What a till gets to see of the terminal through the object.
#include "cp1251.h"
#include "installation.h"
#include "module.h"
#include <cstring>
#include <gtest/gtest.h>

namespace {

typedef std::vector<std::string> Blocks;

class Desk : public Installation {
public:
  Desk() : Installation(ZAT_INSTALLATION "/BIN/zat_mm") { session = object.create(nullptr); }
  ~Desk() { object.destroy(session); }

  // All blocks of a sale, then the result of the call that ended it.
  Blocks Sale(const std::string& amount) {
    std::string request = "1000000012340C" + amount;
    Blocks blocks;
    int result;
    do {
      memset(buffer, 0, sizeof buffer);
      result = object.call(session, blocks.empty() ? request.data() : nullptr, buffer, nullptr, nullptr);
      const size_t data = EFTPParsDLen(reinterpret_cast<unsigned char*>(buffer) + 12, 2, nullptr);
      blocks.emplace_back(buffer, buffer[0] ? 14 + data : 0);
    } while (result == 0);
    blocks.push_back(std::to_string(result));
    return blocks;
  }

private:
  LoadedObject object{Library()};
  void* session;
  char buffer[2048];
};

TEST(Object, BringsTheTerminalsBlocksToATill) {
  Desk desk;
  EXPECT_EQ(Codes(desk.Sale("000000030000")), "53 32 60 nothing 9") << "a good end leaves the buffer alone";

  const struct {
    const char *amount, *codes;
    size_t fromEnd; // the block, counted from the result
    const char* says;
  } cases[] = {
      {"000000030005", "53 32 60 5X 9", 1, "XAЗавершено с ошибкой"_1251},
      {"000000030094", "53 5X 5X 9", 2, "M4HOST 1: Ошибка транспортного уровня (110)"_1251}, // translated
      {"000000030077", "53 5X 9", 1, "XL"}, // the module died after the approval
  };
  for (const auto& c : cases) {
    const Blocks blocks = desk.Sale(c.amount);
    EXPECT_EQ(Codes(blocks), c.codes);
    EXPECT_EQ(blocks[blocks.size() - 1 - c.fromEnd].substr(14, strlen(c.says)), c.says);
  }
}

} // namespace
