#include "ports/record_parser.h"

#include <span>

#include "support/failing_allocation.h"
#include "support/ports.h"
#include "support/testing.h"

namespace {

using namespace ecu::tamu::ipc;
using tests::end_mark;
using tests::wire;

/// The output of a parser: "id " for a record, "|" for the end of a frame, "-n " for n bytes dropped.
class Parsed {
 public:
  Parsed& add(std::string_view bytes, RecordParser::TimePoint now = {}) {
    while (!bytes.empty()) {
      const std::span<char> room = parser_.room();
      const std::size_t count = std::min(room.size(), bytes.size());
      bytes.copy(room.data(), count);
      parser_.add(count, now);
      at(now);
      bytes.remove_prefix(count);
    }
    return *this;
  }
  Parsed& at(RecordParser::TimePoint now) {
    using Event = RecordParser::Event;
    for (Event event = parser_.next(now); event != Event::none; event = parser_.next(now)) {
      if (event == Event::end_of_frame) {
        text_ += '|';
      } else if (event == Event::record) {
        text_.append(std::to_string(parser_.record().id)).append(" ");
      } else {
        text_.append("-").append(std::to_string(parser_.take_damage())).append(" ");
      }
    }
    return *this;
  }
  void reserve(std::size_t size) { text_.reserve(size); }
  Parsed& at_end() { return at(RecordParser::TimePoint::max()); }
  [[nodiscard]] const std::string& text() const noexcept { return text_; }

 private:
  RecordParser parser_;
  std::string text_;
};

const std::string stream = wire(1, "one") + wire(2, "") + wire(3, std::string(5000, 'x')) + end_mark();

TEST(RecordParserTest, WholeRecordsAreFoundHoweverTheyAreSplit) {
  EXPECT_EQ(Parsed().add(stream).text(), "1 2 3 |");
  for (std::size_t split = 0; split <= stream.size(); split += split < 200 ? 1 : 97) {
    EXPECT_EQ(Parsed().add(stream.substr(0, split)).add(stream.substr(split)).text(), "1 2 3 |") << split;
  }
}

TEST(RecordParserTest, DamageAtAnyOffsetLosesNoOtherRecord) {
  const std::string first = wire(1, "one"), last = wire(9, "last");
  for (std::size_t offset = 0; offset < first.size(); ++offset) {
    std::string rotten = first;
    rotten[offset] = static_cast<char>(rotten[offset] ^ 0x55);
    EXPECT_EQ(Parsed().add(rotten + last).at_end().text(), "-27 9 ") << "rotten at " << offset;
    EXPECT_EQ(Parsed().add(first.substr(0, offset) + last).at_end().text(),
              (offset == 0 ? "" : "-" + std::to_string(offset) + " ") + "9 ")
        << "torn at " << offset;
    EXPECT_EQ(Parsed().add(first).add(std::string(offset, 'Q')).add(last).at_end().text(),
              (offset == 0 ? "1 " : "1 -" + std::to_string(offset) + " ") + "9 ")
        << offset << " foreign bytes";
  }
}

TEST(RecordParserTest, RecordsInsideTheAnnouncedSizeOfATornOneAreFound) {
  const std::string torn = wire(1, std::string(60000, 'x')).substr(0, 300);
  const RecordParser::TimePoint start{};
  Parsed parsed;
  parsed.add(torn + wire(2, "a") + wire(3, "b") + end_mark(), start);
  EXPECT_EQ(parsed.at(start + record_time_limit - 1ns).text(), "");
  EXPECT_EQ(parsed.at(start + record_time_limit).text(), "-300 2 3 |");
}

TEST(RecordParserTest, RefusesOversizedRecordsAndFalseMarks) {
  std::string oversized = wire(1, "x"), mark = end_mark();
  oversized[18] = 1;  // a length of 65,537
  mark[4] = 1;
  EXPECT_EQ(Parsed().add(oversized + wire(2, "")).at_end().text(), "-25 2 ");
  EXPECT_EQ(Parsed().add(mark + wire(2, "")).at_end().text(), "-24 2 ");
}

/// Magic bytes all over, each the header of a large record that never comes, and whole records among them.
TEST(RecordParserTest, EveryRecordAmongHostileHeadersIsFoundWithoutAllocatingMemory) {
  const std::string header = wire(7, std::string(60000, 'x')).substr(0, 24);
  std::string hostile;
  for (int i = 0; i < 5000; ++i) {
    hostile += header + (i % 100 == 0 ? stream : "");
  }
  Parsed parsed;
  parsed.reserve(10000);
  {
    const tests::FailingAllocation failing(1);
    parsed.add(hostile).at_end();
  }
  EXPECT_EQ(tests::count(parsed.text(), "1 2 3 |"), 50);
}

}  // namespace
