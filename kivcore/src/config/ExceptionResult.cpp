#include "kivcore/config/ExceptionResult.h"

#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"

namespace kivcore::config {
namespace {

struct Translators {
  std::mutex mutex;
  std::vector<std::pair<int, ExceptionTranslator>> entries;  // guarded by mutex
  int nextId = 1;                                            // guarded by mutex
};

Translators& GetTranslators() {
  static Translators* translators = new Translators();  // outlives static destructors that log
  return *translators;
}

}  // namespace

int ExtractResultFromException(const std::exception_ptr& exception) {
  if (!exception) {
    return 0;
  }
  try {
    std::rethrow_exception(exception);
  } catch (const kiv_exception& e) {
    return e.GetResult();
  } catch (const std::bad_alloc&) {
    return eBadAllocException;
  } catch (...) {
  }
  std::vector<std::pair<int, ExceptionTranslator>> entries;
  {
    Translators& translators = GetTranslators();
    std::lock_guard lock(translators.mutex);
    entries = translators.entries;
  }
  for (const auto& [id, translate] : entries) {
    if (const std::optional<int> result = translate(exception)) {
      return *result;
    }
  }
  return eUnexpectedException;
}

int RegisterExceptionTranslator(ExceptionTranslator translator) {
  Translators& translators = GetTranslators();
  std::lock_guard lock(translators.mutex);
  const int id = translators.nextId++;
  translators.entries.emplace_back(id, std::move(translator));
  return id;
}

void UnregisterExceptionTranslator(int id) {
  Translators& translators = GetTranslators();
  std::lock_guard lock(translators.mutex);
  std::erase_if(translators.entries, [id](const auto& entry) { return entry.first == id; });
}

}  // namespace kivcore::config
