#include <gtest/gtest.h>

#include <string>

#include "kivcore/classref/ClassFactory.h"
#include "kivcore/classref/Implements.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/config/NullPtrException.h"
#include "kivcore/config/ResultCodes.h"

namespace kivcore::classref {
namespace {

class IShape : public Unknown {
 public:
  static constexpr utility::Guid kIID{"11111111-0000-0000-0000-000000000001", 36};
  virtual int Corners() const = 0;
};

class ISquare : public IShape {
 public:
  static constexpr utility::Guid kIID{"11111111-0000-0000-0000-000000000002", 36};
  using ParentInterface = IShape;
  virtual int Side() const = 0;
};

class INamed : public Unknown {
 public:
  static constexpr utility::Guid kIID{"11111111-0000-0000-0000-000000000003", 36};
  virtual std::string Name() const = 0;
};

class IColoured : public Unknown {
 public:
  static constexpr utility::Guid kIID{"11111111-0000-0000-0000-000000000004", 36};
  virtual int Colour() const = 0;
};

class Square : public Implements<ISquare, INamed> {
 public:
  explicit Square(int side) : mSide(side) {}
  int Corners() const override { return 4; }
  int Side() const override { return mSide; }
  std::string Name() const override { return "square"; }

 private:
  int mSide;
};

class RedSquare : public ImplementsMore<Square, IColoured> {
 public:
  RedSquare() : ImplementsMore(2) {}
  int Colour() const override { return 0xFF0000; }
};

TEST(InterfaceRefTest, QueriesReachEveryImplementedInterfaceOfOneObject) {
  const InterfaceRef<ISquare> square = MakeInterfaceRef<ISquare>(CreateObject<Square>(3));
  const auto named = square.Query<INamed>();
  const auto shape = square.Query<IShape>();  // through ParentInterface
  const auto base = square.Query<UnknownBase>();
  ASSERT_TRUE(named && shape && base);
  EXPECT_EQ(named->Name(), "square");
  EXPECT_EQ(shape->Corners(), 4);
  EXPECT_EQ(base.Query<ISquare>(), square);
  EXPECT_FALSE(square.Query<IColoured>());
  EXPECT_EQ(square.GetShared().use_count(), 4);  // all share one control block
}

TEST(InterfaceRefTest, ImplementsMoreAddsInterfacesAndKeepsTheBaseOnes) {
  const auto red = MakeInterfaceRef<IColoured>(CreateObject<RedSquare>());
  EXPECT_EQ(red->Colour(), 0xFF0000);
  EXPECT_EQ(red.Query<ISquare>()->Side(), 2);
  EXPECT_EQ(red.Query<INamed>()->Name(), "square");
}

TEST(InterfaceRefTest, SharedFromThisWorksForObjectsMadeByCreateObject) {
  auto square = CreateObject<Square>(1);
  EXPECT_EQ(square->GetSharedFromThis().get(), static_cast<UnknownBase*>(square.get()));
}

TEST(InterfaceRefTest, DereferencingAnEmptyReferenceThrowsNamingTheInterface) {
  const InterfaceRef<INamed> empty;
  EXPECT_FALSE(empty.Query<IShape>());
  try {
    (void)empty->Name();
    FAIL() << "expected a null-pointer exception";
  } catch (const config::NullPtrException& e) {
    EXPECT_EQ(e.GetResult(), config::eNullPtrException);
    EXPECT_NE(std::string(e.what()).find("INamed"), std::string::npos) << e.what();
  }
}

void CreateSquare(InterfaceRef<UnknownBase>& instance) {
  instance = MakeInterfaceRef<UnknownBase>(CreateObject<Square>(5));
}
void CreateNothing(InterfaceRef<UnknownBase>&) {}

TEST(ClassFactoryTest, CreatesRegisteredClassesAndKeepsTheFirstRegistration) {
  const utility::Guid classId = utility::Guid::CreateUnique();
  EXPECT_FALSE(CreateClassInstanceRef(classId));
  EXPECT_EQ(ClassFactory::RegisterClass(classId, "kSquareGuid", "Square", &CreateSquare), 0);
  EXPECT_EQ(ClassFactory::RegisterClass(classId, "kOtherGuid", "Other", &CreateNothing),
            config::eClassAlreadyRegistered);
  EXPECT_EQ(ClassFactory::GetClassName(classId), "Square");
  EXPECT_EQ(ClassFactory::RegisterClass(utility::Guid::CreateUnique(), "k", "Null", nullptr),
            config::eInvalidArgument);

  const auto instance = CreateClassInstanceRef(classId);
  ASSERT_TRUE(instance);
  EXPECT_EQ(instance.Query<ISquare>()->Side(), 5);
  EXPECT_NE(CreateClassInstanceRef(classId), instance);  // a new instance each time

  EXPECT_TRUE(ClassFactory::UnregisterClass(classId));
  EXPECT_FALSE(CreateClassInstanceRef(classId));
}

}  // namespace
}  // namespace kivcore::classref
