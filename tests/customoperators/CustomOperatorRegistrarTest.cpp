// Registrations are taken during static initialisation only: the library's preflight initializer closes
// the table. The steps depend on each other, so they run as one test in a process of their own.

#include <gtest/gtest.h>

#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/debug/Assert.h"
#include "kivml/customoperators/CustomOperatorRegistrar.h"

namespace kivml::customoperators {
namespace {

using kivcore::utility::Guid;
using kivcore::utility::ImmutableString;

const Guid kFirstId("0D1B5C1E-6C55-4D2C-9C3A-6A3F2B1E0001", 36);
const Guid kSecondId("0D1B5C1E-6C55-4D2C-9C3A-6A3F2B1E0002", 36);

// As a module defining an operator would register it.
const CustomOpRegistrar gStaticRegistrar(ImmutableString::Create("kivml.tests.Gather"), kFirstId);

TEST(CustomOperatorRegistrar, TakesRegistrationsUntilTheLibraryIsInitialized) {
  ASSERT_EQ(GetRegisteredCustomOps().size(), 1U);
  EXPECT_EQ(GetRegisteredCustomOps().at(ImmutableString::Create("kivml.tests.Gather")), kFirstId);

  {
    // A name already taken keeps its first id and is reported once.
    kivcore::debug::ScAssertRecorder recorder;
    CustomOpRegistrar duplicate(ImmutableString::Create("kivml.tests.Gather"), kSecondId);
    ASSERT_EQ(recorder.Count(), 1U);
    const auto report = recorder.Reports().front();
    EXPECT_EQ(report.condition, "didInsertCustomOp");
    EXPECT_EQ(report.message, "Failed to register custom operator");
    EXPECT_EQ(report.file, "src/customoperators/CustomOperatorRegistrar");
    EXPECT_EQ(report.line, 70);
    EXPECT_EQ(GetRegisteredCustomOps().at(ImmutableString::Create("kivml.tests.Gather")), kFirstId);
  }
  {
    kivcore::debug::ScAssertRecorder recorder;
    CustomOpRegistrar another(ImmutableString::Create("kivml.tests.Scatter"), kSecondId);
    EXPECT_EQ(recorder.Count(), 0U);
    EXPECT_EQ(GetRegisteredCustomOps().size(), 2U);
  }

  ASSERT_TRUE(kivcore::config::RunInitializers());
  kivcore::debug::ScAssertRecorder recorder;
  CustomOpRegistrar late(ImmutableString::Create("kivml.tests.Late"), kSecondId);
  EXPECT_EQ(recorder.Count(), 1U);
  EXPECT_EQ(GetRegisteredCustomOps().size(), 2U);
  EXPECT_EQ(GetRegisteredCustomOps().count(ImmutableString::Create("kivml.tests.Late")), 0U);
}

}  // namespace
}  // namespace kivml::customoperators
