#include <cppmicroservices/LDAPFilter.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;

AnyMap properties() {
  return AnyMap(std::unordered_map<std::string, Any>{
      {"name", Any(std::string("kestrel"))},
      {"motto", Any(std::string("a (b) * c"))},
      {"ranking", Any(7)},
      {"speed", Any(2.5)},
      {"enabled", Any(true)},
      {"tags", Any(std::vector<std::string>{"fast", "small"})},
  });
}

struct MatchCase {
  std::string filter;
  bool matches;
};
void PrintTo(const MatchCase& value, std::ostream* out) {
  *out << value.filter;
}

class FilterMatch : public testing::TestWithParam<MatchCase> {};

TEST_P(FilterMatch, DecidesByTheProperties) {
  EXPECT_EQ(LDAPFilter(GetParam().filter).Match(properties()), GetParam().matches);
}

TEST_P(FilterMatch, DecidesTheSameAfterItsTextIsParsedAgain) {
  const LDAPFilter filter(GetParam().filter);
  EXPECT_EQ(LDAPFilter(filter.ToString()).Match(properties()), GetParam().matches) << filter.ToString();
}

INSTANTIATE_TEST_SUITE_P(
    Filters, FilterMatch,
    testing::Values(
        MatchCase{"(name=kestrel)", true}, MatchCase{"(name=Kestrel)", false},
        MatchCase{"(NAME=kestrel)", true}, MatchCase{"(nothing=kestrel)", false}, MatchCase{"(name=*)", true},
        MatchCase{"(nothing=*)", false}, MatchCase{"(ranking=*)", true}, MatchCase{"(name=kes*)", true},
        MatchCase{"(name=*rel)", true}, MatchCase{"(name=k*t*l)", true}, MatchCase{"(name=k*x*l)", false},
        MatchCase{"(name=kestrel*kestrel)", false}, MatchCase{"(motto=a \\(b\\) \\* c)", true},
        MatchCase{"(ranking=7)", true}, MatchCase{"(ranking=8)", false}, MatchCase{"(ranking>=7)", true},
        MatchCase{"(ranking>=8)", false}, MatchCase{"(ranking<=7)", true}, MatchCase{"(ranking<=6)", false},
        MatchCase{"(ranking>=-10)", true}, MatchCase{"(ranking<=10)", true},
        MatchCase{"(ranking=many)", false}, MatchCase{"(speed>=2.25)", true},
        MatchCase{"(speed<=2.25)", false}, MatchCase{"(name>=kes)", true}, MatchCase{"(name<=kes)", false},
        MatchCase{"(name~=KESTREL)", true}, MatchCase{"(enabled=true)", true},
        MatchCase{"(enabled=false)", false}, MatchCase{"(tags=small)", true},
        MatchCase{"(tags=large)", false}, MatchCase{"(tags=f*t)", true},
        MatchCase{"(!(name=kestrel))", false}, MatchCase{"(!(nothing=*))", true},
        MatchCase{"(&(name=kestrel)(ranking=7))", true}, MatchCase{"(&(name=kestrel)(ranking=8))", false},
        MatchCase{"(|(name=merlin)(ranking=7))", true}, MatchCase{"(|(name=merlin)(ranking=8))", false},
        MatchCase{"(&(|(name=merlin)(name=k*))(!(speed>=3)))", true},
        MatchCase{"( & (name=kestrel) (ranking=7) )", true}));

class MalformedFilter : public testing::TestWithParam<std::string> {};

TEST_P(MalformedFilter, IsRefused) {
  EXPECT_THROW(LDAPFilter{GetParam()}, std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(Filters, MalformedFilter,
                         testing::Values("name", "(name)", "(name=kestrel", "name=kestrel)", "(=kestrel)",
                                         "()", "(&)", "(!)", "(name>kestrel)", "(name=kestrel)x",
                                         "(name=(kestrel)", "(&(name=kestrel)", "(!(a=b)(c=d))"));

TEST(Filter, WithoutAnExpressionIsEmptyText) {
  EXPECT_EQ(LDAPFilter().ToString(), "");
  EXPECT_FALSE(LDAPFilter());
}

TEST(Filter, ComparesNamesExactlyOnlyWhenToldTo) {
  EXPECT_TRUE(LDAPFilter("(Name=kestrel)").Match(properties()));
  EXPECT_FALSE(LDAPFilter("(Name=kestrel)").MatchCase(properties()));
  EXPECT_TRUE(LDAPFilter("(name=kestrel)").MatchCase(properties()));
}

}  // namespace
