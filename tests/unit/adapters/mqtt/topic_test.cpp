#include "ecu/tamu/com/topic.h"

#include "support/testing.h"

namespace {

using namespace ecu::tamu::com;

const std::string not_utf8 = "a/\xff", with_nul = std::string("a\0b", 3), too_long(65'536, 'a');

TEST(TopicTest, FiltersAndNamesFollowTheStandard) {
  for (const std::string& good :
       {std::string("a"), std::string("/"), std::string("a//b c/ü"), too_long.substr(1)}) {
    EXPECT_TRUE(is_topic_name(good) && is_topic_filter(good)) << good.substr(0, 20);
  }
  for (const std::string& bad : {std::string(), not_utf8, with_nul, too_long}) {
    EXPECT_FALSE(is_topic_name(bad) || is_topic_filter(bad)) << bad.substr(0, 20);
  }
  for (const char* filter : {"#", "+", "a/#", "+/b/+/#"}) {
    EXPECT_TRUE(is_topic_filter(filter) && !is_topic_name(filter)) << filter;
  }
  for (const char* bad : {"a#", "#/a", "a+", "+a/b"}) {
    EXPECT_FALSE(is_topic_filter(bad) || is_topic_name(bad)) << bad;
  }
}

TEST(TopicTest, WildcardsMatchWholeLevels) {
  for (const auto& [filter, topic] :
       {std::pair("a/b", "a/b"), {"a/+", "a/b"}, {"a/+", "a/"}, {"a/#", "a"}, {"#", "a/b"}}) {
    EXPECT_TRUE(topic_matches(filter, topic)) << filter << ' ' << topic;
  }
  for (const auto& [filter, topic] :
       {std::pair("a/b", "a/bc"), {"a/+", "a/b/c"}, {"a/+", "a"}, {"a/#", "ab"}, {"a#", "a"}}) {
    EXPECT_FALSE(topic_matches(filter, topic)) << filter << ' ' << topic;
  }
}

}  // namespace
