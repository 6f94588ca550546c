// Card data: numbers of every length and kind in every message that can carry them, and what is left of them in files
// and in the host's memory.
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

#include "EFTPWork.h"
#include "areas.h"
#include "cardmarks.h"
#include "installation.h"

namespace trust {

namespace {

constexpr long kLeastCalls = 45; // of an exchange in which the module comes to the end of its script

const std::string kTid = "0000000123", kAmount = "000000125000", kEsc = "\x1B";
// The fixed part of a response: 59 digits and letters that are no card.
const std::string kFixed =
    "1" + kAmount + "643" + "20261121120000" + "000000000000018" + "REF000000001" + "00";

std::string Message(const std::string& workId, const std::string& data, const std::string& tid = kTid) {
  std::string message;
  EFTPMakeHeader(message, static_cast<tEFTPWorkId>(EFTPWId(workId[0], workId[1])), &tid, &data);
  return message;
}

// ---- the cards ---------------------------------------------------------------------------------------------

// The check digit behind these digits.
char CheckDigit(const std::string& digits) {
  int sum = 0;
  bool twice = true;
  for (auto at = digits.rbegin(); at != digits.rend(); ++at, twice = !twice) {
    const int value = (*at - '0') * (twice ? 2 : 1);
    sum += value > 9 ? value - 9 : value;
  }
  return static_cast<char>('0' + (10 - sum % 10) % 10);
}

// A number that begins as told, with the mark before its last four digits.
std::string Number(const std::string& first, size_t length, std::mt19937& random) {
  std::string number = first;
  const auto digit = [&] { return static_cast<char>('0' + random() % 10); };
  while (number.size() < length - 4 - kCore.size()) number += digit();
  number += kCore;
  while (number.size() < length - 1) number += digit();
  return number + CheckDigit(number);
}

// Every length, with the first digits that cards of that length have.
std::vector<std::string> Numbers() {
  std::mt19937 random(7);
  std::vector<std::string> all;
  for (size_t length = 13; length <= 19; ++length)
    for (const char* first : {"4", "51", "63", "37", "22", "91"}) {
      const bool known = first[0] >= '4' && first[0] <= '6';
      if (known || (first[0] == '3' && length >= 14) || length >= 16)
        all.push_back(Number(first, length, random));
    }
  return all;
}

std::string Track2(const std::string& number) {
  return number + "=" + std::string(kExpiry) + "201" + std::string(kRest).substr(0, 37 - number.size() - 8);
}

// A number without a card's check digit and first digits, such as a shop gives its own customers: only its place in a
// message tells what it is.
std::string ShopsOwn(std::string number) {
  number.front() = '0';
  number.back() = number.back() == '9' ? '0' : static_cast<char>(number.back() + 1);
  return number;
}

// In groups as on the card, for the lengths that have them.
std::string Grouped(const std::string& number, char between) {
  std::string text;
  for (size_t i = 0; i < number.size(); ++i)
    text += (number.size() == 16 && i && i % 4 == 0 ? std::string(1, between) : "") + number[i];
  return text;
}

// ---- the messages ------------------------------------------------------------------------------------------

// Texts of people, in Windows-1251 around.
std::vector<std::string> Texts(const std::string& number) {
  const std::string expiry(kPrinted), russian = "\xCA\xE0\xF0\xF2\xE0";
  std::string track = Track2(number), hexadecimal = track;
  hexadecimal[number.size()] = 'D';
  return {number,
          russian + ":" + number + "\xB9",
          "card " + Grouped(number, ' ') + " EXP " + expiry,
          "(" + Grouped(number, '-') + ")",
          number + " " + expiry + "\r\n",
          ";" + track + "?",
          "B" + hexadecimal + "F",
          "\n" + track};
}

// What a till may send with a card in it.
std::vector<std::string> Requests(const std::string& number) {
  std::vector<std::string> all;
  const std::string track = Track2(number);
  std::string hexadecimal = "B" + track + "F";
  hexadecimal[1 + number.size()] = 'D';
  const std::string tracks[] = {track, ";" + track + "?", hexadecimal, number,
                                number + "=" + std::string(kExpiry)};
  const std::string own = ShopsOwn(number);
  for (char c : std::string("0123458DFIJKLMNOPQ"))
    for (const std::string& shown : {tracks[static_cast<unsigned char>(c) % 5], own})
      all.push_back(Message(std::string("1") + c, kAmount + shown));
  for (char c : std::string("67E"))
    for (const std::string& shown : {track, own})
      all.push_back(Message(std::string("1") + c, kAmount + "ABCDEF" + shown));
  for (const char* workId : {"20", "21", "30", "37", "38", "70", "99"})
    all.push_back(Message(workId, Texts(number)[static_cast<unsigned char>(workId[1]) % 8]));
  all.push_back(Message("38", "1CARDMV01" + track));
  return all;
}

std::string Hex(const std::string& bytes) {
  std::string hex;
  for (unsigned char c : bytes) hex += fmt::format("{:02X}", c);
  return hex;
}
std::string Block(const std::string& bytes) { return "block " + Hex(bytes) + "\n"; }

// Longer than a till's buffer: the second track is in the part that nobody reads.
std::string Large(const std::string& track) {
  return Message("36", "00" + std::string(1500, 'x') + " " + track + std::string(1200, 'y') + track);
}

// What a module may answer with a card in it: whole, in two pieces, longer than a till's buffer, outside a block. Two of
// the texts in each kind of message; `turn` chooses them.
std::string Answers(const std::string& number, size_t turn) {
  const std::string track = Track2(number), pair = number + "=" + std::string(kExpiry),
                    own = ShopsOwn(number);
  std::string script = Block("MicroM " + number.substr(0, 22)) + "read\n";
  const std::vector<std::string> texts = Texts(number);
  for (const std::string& text : {texts[turn % texts.size()], texts[(turn + 3) % texts.size()]}) {
    for (const char* workId : {"20", "22", "31", "36", "5M", "52", "53", "54"})
      script += Block(Message(workId, "1 " + text));
    script += Block(Message("5X", "I7Incorrect sequence of answers " + text)) +
              Block(Message("5X", "M1" + text)) + Block(Message("5X", "ZZ" + text)) +
              Block(Message("38", "1CARD" + text)) +
              Block(Message("60", kFixed + kEsc + kEsc + kEsc + text + kEsc + text));
  }
  script += Block(Message("60", kFixed + "A1" + kEsc + pair + kEsc + "VISA" + kEsc + "OK" + kEsc + "more"));
  script += Block(Message("60", kFixed + kEsc + number + kEsc)) + Block(Message("60", kFixed + kEsc + pair)) +
            Block(Message("38", "1CARDMV01" + track)) + Block(Message("38", "1CARDMV01" + number)) +
            Block(Message("38", "1CARDMV01" + own)) + Block(Message("60", kFixed + kEsc + own + kEsc)) +
            Block(Message("60", pair)) + Block("53" + number);
  const std::string whole = Message("60", kFixed + kEsc + pair + kEsc),
                    framed = std::string{0x17, static_cast<char>(whole.size()), 0} + whole + "\x17";
  for (size_t cut : {size_t{1}, size_t{2}, size_t{20}, framed.size() - 15, framed.size() - 1})
    script += "raw " + Hex(framed.substr(0, cut)) + "\nraw " + Hex(framed.substr(cut)) + "\n";
  script += Block(Large(track)) + "raw " + Hex(track) + "\n"; // the second in nobody's block
  for (const std::string& text : texts) script += Block(Message("32", "1" + text)); // the last ones of a day
  return script + Block(Message(turn % 2 ? "#0" : "70", number)); // the end, and what counts as one
}

// One thing with a card, and the end: nothing comes after it that could cover what it leaves behind.
std::vector<std::string> ShortAnswers(const std::string& number) {
  const std::string track = Track2(number), begin = Block("hello") + "read\n", end = Block(Message("#0", ""));
  return {Block("MicroM " + number) + "read\n" + end,
          begin + Block(Message("5X", "I7Incorrect sequence of answers " + track)) + end,
          begin + Block(Message("5X", "M1" + track)) + end,
          begin + Block(Message("32", "1" + track)) + end,
          begin + Block(Message("60", kFixed + kEsc + track + kEsc)) + end,
          begin + Block(Message("38", "1CARDMV01" + track)) + end,
          begin + Block(Large(track)) + end,
          begin + "raw " + Hex(track) + "\n" + end,
          begin + Block(Message("#1", track))};
}

// What must stay readable: it is what a log is kept for. Each message with the part that is looked for.
struct Readable {
  std::string oRequest, oAnswer, oPart;
};
std::vector<Readable> ReadableOnes() {
  const std::string reversal = "400000123456" + kAmount + "000000020000",
                    status = "TOTAL 1250.00 12/25 14:03:59";
  return {
      {Message("10", kAmount), "", kAmount},
      {Message("1A", reversal), "", reversal},
      {Message("19", "400000123456"), "", "400000123456"},
      {Message("23", "632613000001" + kAmount), "", "632613000001" + kAmount},
      {Message("80", kAmount + "123456" + "632613000001" + "VISA"), "",
       kAmount + "123456" + "632613000001" + "VISA"},
      {"", Message("60", kFixed + "123456" + kEsc + kEsc + kEsc), kFixed + "123456"},
      {"",
       Message("60",
               "1" + kAmount + "643" + "20261121120000" + "40000012 345678" + "400000001234" + "00" + kEsc),
       "40000012 345678" + std::string("400000001234") + "00"},
      {"", Message("36", "00" + status), status},
      {"", Message("22", "20261121133003 1763732075121 000000000000018"),
       "20261121133003 1763732075121 000000000000018"},
      {"", Message("70", "1234567890123 4000001234567898"),
       "1234567890123 4000001234567898"}, // no check digits
  };
}

// ---- the host -----------------------------------------------------------------------------------------------

// The host process, which takes one request after the other and answers each with what it found.
class Host {
public:
  explicit Host(const Installation& place) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
    pid = fork();
    if (pid == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      if (chdir((place / "").c_str()) == 0) // its exception log is a file of the installation, too
        execl(ZAT_CARD_HOST, ZAT_CARD_HOST, place.Library().c_str(), nullptr);
      _exit(2);
    }
    close(in[0]);
    close(out[1]);
    requests = in[1];
    found = fdopen(out[0], "r");
  }
  ~Host() {
    End();
    if (found) fclose(found);
    if (pid > 0) waitpid(pid, nullptr, 0);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void Send(const std::string& request) {
    const std::string bytes{static_cast<char>(request.size()), static_cast<char>(request.size() >> 8)};
    if (write(requests, (bytes + request).data(), request.size() + 2) < 0) End();
  }
  void End() {
    if (requests >= 0) close(requests);
    requests = -1;
  }
  // "COUNT CALLS WHEN WHERE MARK"; empty at the end.
  std::string Line() {
    char text[256];
    return found && fgets(text, sizeof text, found) ? std::string(text, strcspn(text, "\n")) : "";
  }

private:
  pid_t pid = -1;
  int requests = -1;
  FILE* found = nullptr;
};

struct Tally {
  long looks = 0, exchanges = 0, calls = 0, bad = 0;
  std::set<std::string> first; // some of what was found

  void Take(const std::string& line, const std::string& what) {
    if (line.empty()) {
      first.insert("the host ended: " + what);
      ++bad;
      return;
    }
    ++looks;
    char* rest = nullptr;
    const long count = strtol(line.c_str(), &rest, 10);
    calls += strtol(rest, nullptr, 10);
    bad += count;
    if (count && first.size() < 3) first.insert(what + ": " + line);
  }
  std::string Text() const {
    std::string text = fmt::format("{} marks of cards", bad);
    for (const std::string& one : first) text += "; " + one;
    return text;
  }
};

// Every file of the installation but those of the test module.
Tally LookThroughFiles(const Installation& place) {
  Tally tally;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(place / "")) {
    if (!entry.is_regular_file() || entry.path().stem() == "module") continue;
    std::ostringstream text;
    text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
    for (std::string_view mark : kMarks) {
      const size_t at = text.view().find(mark);
      if (at == std::string_view::npos) continue;
      const size_t line = text.view().rfind('\n', at) + 1;
      tally.Take("1 0", entry.path().filename().string() + " " +
                            std::string(text.view().substr(line, at - line + 24)));
    }
    ++tally.looks;
  }
  return tally;
}

Installation* NewPlace() {
  auto* place = new Installation(ZAT_SCRIPTED_MODULE);
  // The limit of 11 is one of nothing: each start moves the log away, so that there is a backup to look through.
  place->Put("micromgl.cfg", "[ENV]\nLOGLEVEL=H\nLOGMEGSIZE=11\n");
  place->Put("eftpos.cfg", "[COMMON]\nDefaultOkTimeout=0\nDefaultNOkTimeout=0\n" // and none after a login
                           "TimeoutAfter-30-Ok=0\nTimeoutAfter-30-NOk=0\n");
  return place;
}

// All cards in all messages: what is left in memory.
Tally SendAll(const Installation& place, const std::vector<std::string>& numbers) {
  Tally tally;
  Host host(place);
  const auto exchange = [&](const std::string& script, const std::string& request) {
    place.Put("module.script", script);
    host.Send(request);
    tally.Take(host.Line(), request.substr(0, 2));
  };
  for (const std::string& number : numbers) {
    for (const std::string& request : Requests(number))
      exchange(Answers(number, static_cast<size_t>(tally.exchanges++)), request);
    for (const std::string& script : ShortAnswers(number)) exchange(script, Message("10", kAmount));
  }
  host.End();
  for (const char* when : {"destroyed", "unloaded"}) tally.Take(host.Line(), when);
  return tally;
}

Finding MeasureReadable() {
  const std::unique_ptr<Installation> place(NewPlace());
  const std::vector<Readable> all = ReadableOnes();
  {
    Host host(*place);
    for (const Readable& one : all) {
      place->Put("module.script", Block("hello") + "read\n" +
                                      (one.oAnswer.empty() ? "" : Block(one.oAnswer)) +
                                      Block(Message("#0", "")));
      host.Send(one.oRequest.empty() ? Message("10", kAmount) : one.oRequest);
      host.Line();
    }
  }
  const std::string log = place->Log();
  size_t kept = 0;
  std::string lost;
  for (const Readable& one : all) {
    const bool there = log.find(one.oPart) != log.npos;
    kept += there;
    if (!there) lost += "; lost: " + one.oPart;
  }
  return {"amounts, references, dates stay readable",
          fmt::format("{} values in messages and texts", all.size()),
          fmt::format("{} in the log{}", kept, lost), kept == all.size()};
}

} // namespace

Findings MeasureCards(const Extent& extent) {
  std::vector<std::string> numbers = Numbers();
  if (extent.fShort) numbers = {numbers[13], numbers.back()};
  const std::unique_ptr<Installation> place(NewPlace());
  const Tally memory = SendAll(*place, numbers);
  const Tally second = SendAll(*place, {numbers[0]}); // the log of the first is the backup now
  const Tally files = LookThroughFiles(*place);
  const bool whole = memory.exchanges > 0 && memory.calls >= memory.exchanges * kLeastCalls;
  const bool logged = place->Log().find("ReadBlock") != std::string::npos && place->Has("BIN/zat_com2.log");
  return {
      {"no card in the memory of the host",
       fmt::format("{} cards, {} exchanges, {} calls, {} looks", numbers.size(), memory.exchanges,
                   memory.calls, memory.looks),
       memory.Text() + (whole ? "" : "; exchanges ended too early"), memory.bad + second.bad == 0 && whole},
      {"no card in a file", fmt::format("{} files, log and its backup among them", files.looks),
       files.Text() + (logged ? "" : "; no log to look through"), files.bad == 0 && logged},
      MeasureReadable(),
  };
}

} // namespace trust
