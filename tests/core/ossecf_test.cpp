// The catalog against a copy of its rows, its bounds, and its searches.
#include <gtest/gtest.h>

#include <string>

#include "osscatalog.h"
#include "tests/core/ossecf_expected_codes.h"
#include "tests/core/ossecf_expected_operations.h"
#include "tests/core/ossecf_expected_syscalls.h"

namespace oss {
namespace {

constexpr uint32_t kLastProduct = 3;
constexpr uint32_t kComponentCounts[] = {0, 16, 4, 184};
constexpr uint32_t kLastCode = 1322;
constexpr uint32_t kLastSystemCall = 354;
constexpr uint32_t kLastOperation = 174;

constexpr uint32_t operationId(uint32_t number) { return 0x081A0000 + number; }
constexpr uint32_t systemCallId(uint32_t number) { return 0x08140000 + number; }
constexpr uint32_t componentId(uint32_t product, uint32_t component) {
  return product << 27 | component << 19;
}

constexpr uint32_t functionCountOf(uint32_t product, uint32_t component) {
  if (product == 0 || product > kLastProduct) return 0;
  if (component == 0 || component > kComponentCounts[product]) return 0;
  if (product == 1 && component == 2) return kLastSystemCall;
  if (product == 1 && component == 3) return kLastOperation;
  return 1;
}

const expected::SystemCall* findSystemCall(uint32_t number) {
  for (const expected::SystemCall& row : expected::kSystemCalls)
    if (row.number == number) return &row;
  return nullptr;
}

const expected::Code* findCode(uint32_t index) {
  for (const expected::Code& row : expected::kCodes)
    if ((row.value & 0x7FFFFF) == index) return &row;
  return nullptr;
}

// ---- Return codes ----

TEST(ReturnCode, SuccessIsZeroAndReadsOk) {
  EXPECT_EQ(ECF_OK, 0U);
  EXPECT_STREQ(ecfErrorGetCodeName(0), "OK");
  EXPECT_STREQ(ecfErrorGetDescription(0), "OK");
}

TEST(ReturnCode, SuccessBelongsToNobody) {
  EXPECT_STREQ(ecfErrorGetSetName(0), nullptr);
  EXPECT_STREQ(ecfErrorGetProductName(0), nullptr);
  EXPECT_STREQ(ecfErrorGetComponentName(0), nullptr);
}

TEST(ReturnCode, EveryConstantHasItsCatalogValue) {
  for (const expected::Code& row : expected::kCodes) EXPECT_EQ(row.constant, row.value) << row.name;
}

TEST(ReturnCode, ThreeCodesAreWarningsAndAllOthersErrors) {
  for (const expected::Code& row : expected::kCodes) {
    const uint32_t index = row.value & 0x7FFFFF;
    const bool isWarning = index == 6 || index == 0x50D || index == 0x528;
    EXPECT_EQ(row.constant, (isWarning ? 0x10000000 : 0x90000000) + index) << row.name;
  }
}

// Callers compare with 0: the sign would take a warning for success.
TEST(ReturnCode, AWarningIsNotZeroAlthoughItsErrorBitIsClear) {
  for (const OSSErr warning : {ECF_PARTIAL_INFO, ECF_HMON_WARN_NO_MATCHING_TEXT_TOKEN,
                               ECF_PD_DIAG_LOG_SEVERITY_LEVEL_NOT_SUFFICIENT}) {
    EXPECT_NE(warning, ECF_OK);
    EXPECT_GE(static_cast<int32_t>(warning), 0);
    EXPECT_STRNE(ecfErrorGetCodeName(warning), nullptr);
  }
}

TEST(ReturnCode, TheErrorBitTakesNoPartInTheLookUp) {
  EXPECT_STREQ(ecfErrorGetCodeName(0x90000001), "ECF_ACCESS_DENIED");
  EXPECT_STREQ(ecfErrorGetCodeName(0x10000001), "ECF_ACCESS_DENIED");
  EXPECT_STREQ(ecfErrorGetCodeName(0x10000006), "ECF_PARTIAL_INFO");
  EXPECT_STREQ(ecfErrorGetCodeName(0x90000006), "ECF_PARTIAL_INFO");
}

TEST(ReturnCode, TheBitsBetweenSetAndIndexTakeNoPartInTheLookUp) {
  for (uint32_t bit = 23; bit <= 27; ++bit) {
    EXPECT_STREQ(ecfErrorGetCodeName(0x90000001 | 1U << bit), "ECF_ACCESS_DENIED") << bit;
    EXPECT_STREQ(ecfErrorGetDescription(0x90000001 | 1U << bit), "Access denied") << bit;
  }
}

TEST(ReturnCode, IndexZeroOfSetOneIsNotCatalogued) {
  EXPECT_STREQ(ecfErrorGetSetName(0x90000000), "setecf");
  EXPECT_STREQ(ecfErrorGetCodeName(0x90000000), nullptr);
  EXPECT_STREQ(ecfErrorGetDescription(0x90000000), nullptr);
  EXPECT_STREQ(ecfErrorGetProductName(0x90000000), nullptr);
  EXPECT_STREQ(ecfErrorGetComponentName(0x90000000), nullptr);
}

TEST(ReturnCode, TheLastIndexIsCataloguedAndTheNextIsNot) {
  EXPECT_STREQ(ecfErrorGetCodeName(0x9000052A), "ECF_CRYPT_FINAL_BUFFER_TOO_SMALL");
  for (const OSSErr beyond : {0x9000052BU, 0x907FFFFFU}) {
    EXPECT_STREQ(ecfErrorGetCodeName(beyond), nullptr);
    EXPECT_STREQ(ecfErrorGetDescription(beyond), nullptr);
    EXPECT_STREQ(ecfErrorGetProductName(beyond), nullptr);
    EXPECT_STREQ(ecfErrorGetComponentName(beyond), nullptr);
  }
}

TEST(ReturnCode, OnlySetOneExists) {
  for (uint32_t set = 0; set <= 7; ++set) {
    const OSSErr rc = 0x80000001 | set << 28;
    EXPECT_STREQ(ecfErrorGetSetName(rc), set == 1 ? "setecf" : nullptr) << set;
    EXPECT_STREQ(ecfErrorGetCodeName(rc), set == 1 ? "ECF_ACCESS_DENIED" : nullptr) << set;
    EXPECT_STREQ(ecfErrorGetDescription(rc), set == 1 ? "Access denied" : nullptr) << set;
    EXPECT_STREQ(ecfErrorGetProductName(rc), set == 1 ? "common" : nullptr) << set;
    EXPECT_STREQ(ecfErrorGetComponentName(rc), set == 1 ? "generic" : nullptr) << set;
  }
}

TEST(ReturnCode, TheNumberOfCodesIsKnownForSetOneOnly) {
  EXPECT_EQ(ecfErrorGetNumCodes(0), 0U);
  EXPECT_EQ(ecfErrorGetNumCodes(1), 1322U);
  for (const uint32_t set : {2U, 8U, 0x10000001U, 0xFFFFFFFFU})
    EXPECT_EQ(ecfErrorGetNumCodes(set), 0U) << set;
}

const char* componentNameOf(uint32_t component) {
  switch (component) {
    case 1: return "generic";
    case 2: return "operating system";
    case 3: return "OSSe";
    case 14: return "crypto";
    default: return nullptr;
  }
}

TEST(ReturnCode, EveryNamedCodeHasItsTextsAndItsOwner) {
  for (const expected::Code& row : expected::kCodes) {
    EXPECT_STREQ(ecfErrorGetCodeName(row.value), row.name);
    EXPECT_STREQ(ecfErrorGetDescription(row.value), row.description) << row.name;
    EXPECT_STREQ(ecfErrorGetProductName(row.value), "common") << row.name;
    EXPECT_STREQ(ecfErrorGetComponentName(row.value), componentNameOf(row.component)) << row.name;
  }
}

TEST(ReturnCode, EveryOtherIndexIsAReservedRowOfOneForm) {
  uint32_t reserved = 0;
  for (uint32_t index = 1; index <= kLastCode; ++index) {
    if (findCode(index) != nullptr) continue;
    ++reserved;
    const OSSErr rc = 0x90000000 + index;
    EXPECT_STREQ(ecfErrorGetCodeName(rc), ("ECF_RESERVED_" + std::to_string(index)).c_str());
    EXPECT_STREQ(ecfErrorGetDescription(rc), "Reserved") << index;
    EXPECT_STREQ(ecfErrorGetProductName(rc), "common") << index;
    EXPECT_STREQ(ecfErrorGetComponentName(rc), "operating system") << index;
  }
  EXPECT_EQ(reserved, kLastCode - std::size(expected::kCodes));
}

// ---- Function identifiers ----

TEST(FunctionIdentifier, IsMadeOfProductComponentKindAndNumber) {
  EXPECT_EQ(makeFunctionId(1, 3, FunctionKind::Operation, 3), 0x081A0003U);
  EXPECT_EQ(makeFunctionId(1, 2, FunctionKind::SystemCall, 105), 0x08140069U);
  EXPECT_EQ(makeFunctionId(31, 255, FunctionKind::Reserved7, 0xFFFF), 0xFFFFFFFFU);
}

TEST(FunctionIdentifier, CutsEachFieldToItsWidth) {
  EXPECT_EQ(makeFunctionId(32, 0, FunctionKind::None, 0), 0U);
  EXPECT_EQ(makeFunctionId(0, 256, FunctionKind::None, 0), 0U);
  EXPECT_EQ(makeFunctionId(0, 0, FunctionKind::None, 0x10000), 0U);
}

TEST(FunctionIdentifier, KindsCountFromNoneToSeven) {
  EXPECT_EQ(static_cast<uint32_t>(FunctionKind::None), 0U);
  EXPECT_EQ(static_cast<uint32_t>(FunctionKind::Internal), 1U);
  EXPECT_EQ(static_cast<uint32_t>(FunctionKind::Operation), 2U);
  EXPECT_EQ(static_cast<uint32_t>(FunctionKind::Callback), 3U);
  EXPECT_EQ(static_cast<uint32_t>(FunctionKind::SystemCall), 4U);
  EXPECT_EQ(static_cast<uint32_t>(FunctionKind::Reserved7), 7U);
}

struct Enumerator {
  uint32_t value;
  std::string text;
};
const Enumerator kEnumerators[] = {
#define ECF_FUNCTION(number, enumerator, catalogName) \
  {static_cast<uint32_t>(Func::enumerator), #enumerator},
#include "ecf_functions.def"
#undef ECF_FUNCTION
};

// An operation's enumerator is its catalog name, with "_" for "::" and none in front.
std::string enumeratorOf(std::string name) {
  if (const size_t at = name.find("::"); at != std::string::npos) name.replace(at, 2, "_");
  return name.substr(name.find_first_not_of('_'));
}

TEST(FunctionIdentifier, EveryOperationStandsUnderItsOwnNumber) {
  ASSERT_EQ(std::size(kEnumerators), std::size(expected::kOperations));
  for (size_t i = 0; i < std::size(kEnumerators); ++i) {
    EXPECT_EQ(kEnumerators[i].value, operationId(expected::kOperations[i].number));
    EXPECT_EQ(kEnumerators[i].text, enumeratorOf(expected::kOperations[i].name));
  }
}

TEST(FunctionIdentifier, EverySystemCallStandsUnderItsOwnNumber) {
  for (const expected::SystemCall& row : expected::kSystemCalls)
    EXPECT_EQ(static_cast<uint32_t>(row.call), systemCallId(row.number)) << row.name;
}

// ---- Products and components ----

TEST(Catalog, HasThreeProducts) {
  EXPECT_EQ(ecfGetNumProducts(), 3U);
  EXPECT_STREQ(ecfGetProductName(1U << 27), "common");
  EXPECT_STREQ(ecfGetProductName(2U << 27), "tools");
  EXPECT_STREQ(ecfGetProductName(3U << 27), "KT5");
}

TEST(Catalog, AnswersNothingForProductZeroAndThoseBeyondTheThird) {
  EXPECT_STREQ(ecfGetProductName(0x07FFFFFF), nullptr);
  for (uint32_t product = 4; product <= 31; ++product) {
    const uint32_t funcId = makeFunctionId(product, 1, FunctionKind::None, 1);
    EXPECT_STREQ(ecfGetProductName(funcId), nullptr) << product;
    EXPECT_STREQ(ecfGetComponentName(funcId), nullptr) << product;
    EXPECT_STREQ(ecfGetComponentShortName(funcId), nullptr) << product;
    EXPECT_STREQ(ecfGetFunctionName(funcId), nullptr) << product;
  }
}

TEST(Catalog, CountsTheComponentsOfEachProduct) {
  EXPECT_EQ(ecfGetNumComponents(1), 16U);
  EXPECT_EQ(ecfGetNumComponents(2), 4U);
  EXPECT_EQ(ecfGetNumComponents(3), 184U);
  for (const uint32_t product : {0U, 4U, 32U, 0xFFFFFFFFU})
    EXPECT_EQ(ecfGetNumComponents(product), 0U) << product;
}

TEST(Catalog, NamesTheFourComponentsThatAreKnown) {
  EXPECT_STREQ(ecfGetComponentName(0x08080000), "generic");
  EXPECT_STREQ(ecfGetComponentShortName(0x08080000), "COMP_GENERIC");
  EXPECT_STREQ(ecfGetComponentName(0x08140069), "operating system");
  EXPECT_STREQ(ecfGetComponentShortName(0x08140069), "COMP_SYSFUNCS");
  EXPECT_STREQ(ecfGetComponentName(0x081A0003), "OSSe");
  EXPECT_STREQ(ecfGetComponentShortName(0x081A0003), "COMP_OSSE");
  EXPECT_STREQ(ecfGetComponentName(0x08700000), "crypto");
  EXPECT_STREQ(ecfGetComponentShortName(0x08700000), "COMP_CRYPT");
}

TEST(Catalog, ReservesEveryOtherComponentInOneForm) {
  for (uint32_t product = 1; product <= kLastProduct; ++product)
    for (uint32_t component = 1; component < kComponentCounts[product]; ++component) {
      if (product == 1 && componentNameOf(component) != nullptr) continue;
      const uint32_t funcId = componentId(product, component);
      EXPECT_STREQ(ecfGetComponentName(funcId), "reserved") << product << "/" << component;
      EXPECT_STREQ(ecfGetComponentShortName(funcId),
                   ("COMP_RESERVED_" + std::to_string(component)).c_str());
    }
}

TEST(Catalog, TheLastComponentSlotOfAProductIsAnEmptyName) {
  for (uint32_t product = 1; product <= kLastProduct; ++product) {
    const uint32_t funcId = componentId(product, kComponentCounts[product]);
    EXPECT_STREQ(ecfGetComponentName(funcId), "") << product;
    EXPECT_STREQ(ecfGetComponentShortName(funcId), "") << product;
  }
}

TEST(Catalog, ComponentZeroAndThoseAboveTheCountHaveNoName) {
  for (uint32_t product = 1; product <= kLastProduct; ++product)
    for (const uint32_t component : {0U, kComponentCounts[product] + 1, 255U}) {
      const uint32_t funcId = makeFunctionId(product, component, FunctionKind::Operation, 1);
      EXPECT_STREQ(ecfGetComponentName(funcId), nullptr) << product << "/" << component;
      EXPECT_STREQ(ecfGetComponentShortName(funcId), nullptr) << product << "/" << component;
      EXPECT_STREQ(ecfGetFunctionName(funcId), nullptr) << product << "/" << component;
    }
}

// ---- Functions ----

TEST(Catalog, CountsTheFunctionSlotsOfEachComponent) {
  for (uint32_t product = 0; product <= 33; ++product)
    for (uint32_t component = 0; component <= 257; ++component)
      EXPECT_EQ(ecfGetNumFunctions(product, component), functionCountOf(product, component))
          << product << "/" << component;
  EXPECT_EQ(ecfGetNumFunctions(1, 0xFFFFFFFF), 0U);
  EXPECT_EQ(ecfGetNumFunctions(0xFFFFFFFF, 1), 0U);
}

TEST(Catalog, NamesEveryOperationOfTheLibrary) {
  ASSERT_EQ(std::size(expected::kOperations), 173U);
  for (const expected::Operation& row : expected::kOperations)
    EXPECT_STREQ(ecfGetFunctionName(operationId(row.number)), row.name) << row.number;
}

TEST(Catalog, NamesEverySystemCallAndReservesTheOtherNumbers) {
  for (uint32_t number = 1; number < kLastSystemCall; ++number) {
    const expected::SystemCall* const row = findSystemCall(number);
    const std::string reserved = "RESERVED_" + std::to_string(number);
    EXPECT_STREQ(ecfGetFunctionName(systemCallId(number)),
                 row != nullptr ? row->name : reserved.c_str());
  }
}

TEST(Catalog, TheLastFunctionSlotOfAComponentHoldsNoName) {
  EXPECT_STREQ(ecfGetFunctionName(operationId(174)), nullptr);
  EXPECT_STREQ(ecfGetFunctionName(systemCallId(354)), nullptr);
  EXPECT_STREQ(ecfGetFunctionName(makeFunctionId(1, 14, FunctionKind::None, 1)), nullptr);
  EXPECT_STREQ(ecfGetFunctionName(makeFunctionId(3, 184, FunctionKind::None, 1)), nullptr);
}

TEST(Catalog, FunctionZeroAndThoseAboveTheCountHaveNoName) {
  for (const uint32_t number : {0U, 175U, 355U, 0xFFFFU})
    EXPECT_STREQ(ecfGetFunctionName(operationId(number)), nullptr) << number;
  for (const uint32_t number : {0U, 355U, 0xFFFFU})
    EXPECT_STREQ(ecfGetFunctionName(systemCallId(number)), nullptr) << number;
}

TEST(Catalog, TheKindOfAnIdentifierIsIgnored) {
  for (uint32_t kind = 0; kind <= 7; ++kind) {
    const uint32_t funcId = 0x08180003 | kind << 16;
    EXPECT_STREQ(ecfGetFunctionName(funcId), "OSSHFile::close") << kind;
    EXPECT_STREQ(ecfGetComponentName(funcId), "OSSe") << kind;
    EXPECT_STREQ(ecfGetComponentShortName(funcId), "COMP_OSSE") << kind;
    EXPECT_STREQ(ecfGetProductName(funcId), "common") << kind;
  }
}

// ---- Searches ----

TEST(Catalog, FindsAProductByItsName) {
  EXPECT_EQ(ecfFindProductIndex("common"), 1U);
  EXPECT_EQ(ecfFindProductIndex("tools"), 2U);
  EXPECT_EQ(ecfFindProductIndex("KT5"), 3U);
}

TEST(Catalog, ComparesNamesByteByByte) {
  for (const char* const name : {"", "kt5", "KT5 ", "KT", "commo", "Common"})
    EXPECT_EQ(ecfFindProductIndex(name), 0U) << name;
  EXPECT_EQ(ecfFindComponentIndex(1, "comp_osse"), 0U);
  EXPECT_EQ(ecfFindFunctionIndex(1, 3, "osshfile::open"), 0U);
  EXPECT_EQ(ecfFindFunctionIndex(1, 3, "OSSHFile::ope"), 0U);
}

TEST(Catalog, FindsAComponentByItsShortNameOnly) {
  EXPECT_EQ(ecfFindComponentIndex(1, "COMP_OSSE"), 3U);
  EXPECT_EQ(ecfFindComponentIndex(1, "COMP_SYSFUNCS"), 2U);
  EXPECT_EQ(ecfFindComponentIndex(1, "OSSe"), 0U);
  EXPECT_EQ(ecfFindComponentIndex(1, "operating system"), 0U);
  EXPECT_EQ(ecfFindComponentIndex(2, "COMP_OSSE"), 0U);
}

TEST(Catalog, FindsEveryComponentButTheLast) {
  for (uint32_t product = 1; product <= kLastProduct; ++product) {
    for (uint32_t component = 1; component < kComponentCounts[product]; ++component) {
      const char* const name = ecfGetComponentShortName(componentId(product, component));
      EXPECT_EQ(ecfFindComponentIndex(product, name), component) << name;
    }
    EXPECT_EQ(ecfFindComponentIndex(product, ""), 0U) << product;
  }
}

TEST(Catalog, FindsEveryOperationAndSystemCallButTheLastSlot) {
  for (uint32_t number = 1; number < kLastOperation; ++number)
    EXPECT_EQ(ecfFindFunctionIndex(1, 3, ecfGetFunctionName(operationId(number))), number);
  for (uint32_t number = 1; number < kLastSystemCall; ++number)
    EXPECT_EQ(ecfFindFunctionIndex(1, 2, ecfGetFunctionName(systemCallId(number))), number);
  EXPECT_EQ(ecfFindFunctionIndex(1, 3, "ossgetpass"), 173U);
  EXPECT_EQ(ecfFindFunctionIndex(1, 3, ""), 0U);
  EXPECT_EQ(ecfFindFunctionIndex(1, 2, ""), 0U);
}

TEST(Catalog, FindsNoFunctionInAComponentWithOneSlot) {
  EXPECT_EQ(ecfFindFunctionIndex(1, 1, "ossgetpass"), 0U);
  EXPECT_EQ(ecfFindFunctionIndex(1, 1, ""), 0U);
  EXPECT_EQ(ecfFindFunctionIndex(3, 184, ""), 0U);
}

TEST(Catalog, FindsNothingUnderANullName) {
  EXPECT_EQ(ecfFindProductIndex(nullptr), 0U);
  EXPECT_EQ(ecfFindComponentIndex(1, nullptr), 0U);
  EXPECT_EQ(ecfFindFunctionIndex(1, 3, nullptr), 0U);
}

TEST(Catalog, FindsNothingInProductsAndComponentsThatDoNotExist) {
  for (const uint32_t product : {0U, 4U, 0xFFFFFFFFU}) {
    EXPECT_EQ(ecfFindComponentIndex(product, "COMP_OSSE"), 0U) << product;
    EXPECT_EQ(ecfFindFunctionIndex(product, 3, "ossgetpass"), 0U) << product;
  }
  for (const uint32_t component : {0U, 17U, 0xFFFFFFFFU})
    EXPECT_EQ(ecfFindFunctionIndex(1, component, "ossgetpass"), 0U) << component;
}

}  // namespace
}  // namespace oss
