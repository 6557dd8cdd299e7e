#pragma once
// Accepts digits only, for options that count or seed. CLI11 reads unsigned options through strtoull, which
// takes "-1" for 2^64 - 1 and "0x10" for 16; a validator sees the text before that conversion.

#include "CLI11Include.h"

namespace kivml::cli {

class WholeNumberValidator : public CLI::Validator {
 public:
  WholeNumberValidator();
};

}  // namespace kivml::cli
