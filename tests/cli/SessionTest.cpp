#include "cli/Session.h"

#include <sstream>

#include "tests/support/Sandbox.h"

namespace orvanta::cli {

TEST(Session, ALineOfInputHasAnEnd) {
  const std::string longest(std::size_t{64} << 10, 'x');
  std::istringstream in(" first \n\n" + longest + "\nlast");
  std::ostringstream out;
  const Session session({.in = in, .out = out, .err = out}, {});
  for (const auto& expected : {std::string("first"), std::string(), longest, std::string("last")}) {
    EXPECT_EQ(session.readLine(), expected);
  }
  EXPECT_EQ(session.readLine(), std::nullopt);

  std::istringstream endless(longest + longest);
  const Session other({.in = endless, .out = out, .err = out}, {});
  EXPECT_THAT(errorOf([&] { (void)other.readLine(); }), IsError(SkillsError::Kind::invalidInput, "longer than 64 KiB"));
}

}  // namespace orvanta::cli
