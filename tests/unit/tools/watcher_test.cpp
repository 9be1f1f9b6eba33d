#include "ecusim/watcher.h"

#include <gtest/gtest.h>

#include <sstream>

#include <ecu/tamu/com/pb_internal_message_adapter.h>

namespace ecu::sim {
namespace {

using namespace std::string_literals;
using tamu::pb::EcuVariable;

EcuVariable variable(const std::string& value) {
  EcuVariable body;
  body.set_value(value);
  body.set_timestamp(12'345'678'901'234);
  return body;
}

void send(tamu::com::ISubscriptionObserver& observer, const std::string& name, const EcuVariable& body) {
  observer.message("system/var/" + name,
                   tamu::com::PbInternalMessageAdapter<EcuVariable>().serialize(body).value());
}

TEST(VariablePrinterTest, EveryVariableGetsAReadableLine) {
  std::ostringstream out;
  int failures = 0;
  VariablePrinter printer(out, [&failures] { ++failures; });
  send(printer, "hwversion", variable("r08"));
  send(printer, "versioncsp", variable("\\1.2\xff\0"s));
  send(printer, "topversion", {});
  printer.message("system/var/broken\n", {});
  EXPECT_EQ(out.str(),
            "hwversion             r08                                  12345.678 s\n"
            "versioncsp            \\x5c1.2\\xff\\x00                      12345.678 s\n"
            "topversion            (no value)\n"
            "broken\\x0a            (cannot be decoded)\n");
  EXPECT_EQ(failures, 0);
  out.setstate(std::ios::badbit);
  send(printer, "hwversion", variable("r08"));
  EXPECT_EQ(failures, 1);
}

TEST(VariableCheckerTest, CompleteOnceEveryVariableHasArrivedWithItsValue) {
  int completed = 0;
  VariableChecker checker({{"a", "1"}, {"b", ""}}, [&] { ++completed; });
  send(checker, "a", variable("2"));
  send(checker, "c", variable("1"));
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_FALSE(checker.report(out, err));
  EXPECT_EQ(err.str(),
            "missing: a, expected \"1\", last value: 2\n"
            "missing: b, expected \"\", not published\n");
  send(checker, "a", variable("1"));
  send(checker, "a", variable("2"));
  EXPECT_EQ(completed, 0);
  send(checker, "b", {});
  EXPECT_EQ(completed, 1);
  EXPECT_TRUE(checker.report(out, err));
  EXPECT_EQ(out.str(),
            "a                     1                                    12345.678 s\n"
            "b                     (no value)\n");
}

}  // namespace
}  // namespace ecu::sim
