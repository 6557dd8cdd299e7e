#include "kivcore/classref/UnknownBase.h"

namespace kivcore::classref {

UnknownBase::~UnknownBase() = default;
Unknown::~Unknown() = default;

}  // namespace kivcore::classref
