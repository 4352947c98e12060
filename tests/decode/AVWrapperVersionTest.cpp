// The version probe's rules, checked against hand-made FFmpeg classes, so that builds with
// other option tables than the project's own are covered.
#include "decode/AVWrapper.h"
#include "decode/FFmpeg.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace oru {
namespace {

AVOption option(char const* name, AVOptionType type, double min, double max) {
  AVOption result{};
  result.name = name;
  result.type = type;
  result.min = min;
  result.max = max;
  return result;
}

// An AVClass with the given options, as a library would declare it.
class FakeClass {
 public:
  explicit FakeClass(std::vector<AVOption> options) : mOptions(std::move(options)) {
    mOptions.push_back(AVOption{});  // the terminating entry
    mClass.class_name = "fake";
    mClass.item_name = av_default_item_name;
    mClass.option = mOptions.data();
    mClass.version = LIBAVUTIL_VERSION_INT;
  }
  AVClass const* get() const { return &mClass; }

 private:
  std::vector<AVOption> mOptions;
  AVClass mClass{};
};

std::pair<int, int> probe(FakeClass const& formatClass, FakeClass const& codecClass) {
  std::pair<int, int> range{0, 0};
  AVWrapper().getORUVersions(formatClass.get(), codecClass.get(), &range.first, &range.second);
  return range;
}

std::pair<int, int> find(FakeClass const& avClass) {
  std::pair<int, int> range{0, 0};
  AVWrapper().findORUVersion(avClass.get(), &range.first, &range.second);
  return range;
}

using Range = std::pair<int, int>;

TEST(AVWrapperVersionTest, FindsTheFirstIntegerOptionOfThatName_TruncatingItsBounds) {
  FakeClass const avClass({option("other", AV_OPT_TYPE_INT, 5, 6),
                           option("oru_version", AV_OPT_TYPE_STRING, 7, 8),
                           option("oru_version", AV_OPT_TYPE_INT, 1.9, 3.99),
                           option("oru_version", AV_OPT_TYPE_INT, 4, 4)});
  EXPECT_EQ(find(avClass), Range(1, 3));
}

TEST(AVWrapperVersionTest, ClassWithoutTheOption_GivesMinusOne) {
  EXPECT_EQ(find(FakeClass({option("oru_version", AV_OPT_TYPE_INT64, 1, 1)})), Range(-1, -1));
  EXPECT_EQ(find(FakeClass({})), Range(-1, -1));
}

TEST(AVWrapperVersionTest, LibrariesThatAgree_GiveTheirRange) {
  FakeClass const formatClass({option("oru_version", AV_OPT_TYPE_INT, 1, 3)});
  FakeClass const codecClass({option("oru_version", AV_OPT_TYPE_INT, 1, 3)});
  EXPECT_EQ(probe(formatClass, codecClass), Range(1, 3));
}

TEST(AVWrapperVersionTest, LibrariesThatDisagree_GiveMinusOne) {
  FakeClass const oneToThree({option("oru_version", AV_OPT_TYPE_INT, 1, 3)});
  FakeClass const oneToTwo({option("oru_version", AV_OPT_TYPE_INT, 1, 2)});
  FakeClass const twoToThree({option("oru_version", AV_OPT_TYPE_INT, 2, 3)});
  FakeClass const inverted({option("oru_version", AV_OPT_TYPE_INT, 3, 1)});
  FakeClass const missing({});

  EXPECT_EQ(probe(oneToThree, oneToTwo), Range(-1, -1));
  EXPECT_EQ(probe(oneToThree, twoToThree), Range(-1, -1));
  EXPECT_EQ(probe(inverted, inverted), Range(-1, -1));
  EXPECT_EQ(probe(missing, oneToThree), Range(-1, -1));
  EXPECT_EQ(probe(oneToThree, missing), Range(-1, -1));
}

}  // namespace
}  // namespace oru
