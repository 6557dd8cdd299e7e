// What the library registers with the core runtime when it is loaded: its class ids, its named
// initializers and, through the ONNX Runtime initializer, the evaluator class.

#include <optional>

#include "customoperators/CustomOperatorRegistrar.h"
#include "kivcore/classref/ClassFactory.h"
#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/config/ResultCodes.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/ModuleIds.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/ORTEvaluator.h"

namespace kivml {

const kivcore::utility::Guid kORTEvaluatorGuid("4768AC16-4537-4112-8788-B7A0A7C95F3E", 36);
const kivcore::utility::Guid kKivmlModuleGuid("E3834F7C-735B-473D-A10E-70C3987A25D1", 36);
const kivcore::utility::Guid kKivmlSuitesGuid("57662D59-B110-4B58-8952-EB6EFAC3EC1C", 36);

namespace {

using kivcore::config::InitializerRegistrar;

std::optional<int> gOrtTranslatorId;

// A failed ONNX Runtime call reaches callers as eInferenceFailure; the exception keeps ONNX Runtime's text.
std::optional<int> TranslateOrtException(const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const Ort::Exception&) {
    return eInferenceFailure;
  } catch (...) {
    return std::nullopt;
  }
}

bool InitializeOnnxRuntime() {
  if (!gOrtTranslatorId) {
    gOrtTranslatorId = kivcore::config::RegisterExceptionTranslator(&TranslateOrtException);
  }
  ort::ORTEnvironment::Create();
  return kivcore::ResultSucceeded(kivcore::classref::ClassFactory::RegisterClass(
      kORTEvaluatorGuid, "kORTEvaluatorGuid", "ORTEvaluator", &ort::ORTEvaluator::Create));
}

void ShutDownOnnxRuntime() {
  kivcore::classref::ClassFactory::UnregisterClass(kORTEvaluatorGuid);
  if (gOrtTranslatorId) {
    kivcore::config::UnregisterExceptionTranslator(*gOrtTranslatorId);
    gOrtTranslatorId.reset();
  }
}

bool CloseCustomOperatorRegistration() {
  customoperators::CloseCustomOpRegistration();
  return true;
}

const InitializerRegistrar gLibraryInitializer("kivmachinelearning", kivcore::config::kInitializerDefault,
                                               [] { return true; }, {}, {},
                                               {"kivml::onnxruntime", "kivml::coreml"});
const InitializerRegistrar gOnnxRuntimeInitializer("kivml::onnxruntime", kivcore::config::kInitializerDefault,
                                                   &InitializeOnnxRuntime, &ShutDownOnnxRuntime);
// Runs after every custom operator definition's initializer: from then on the table is complete.
const InitializerRegistrar gPreflightInitializer("kivml::preflight", kivcore::config::kInitializerDefault,
                                                 &CloseCustomOperatorRegistration, {}, {},
                                                 {"kivml::customoperatordefs::*"});

}  // namespace

}  // namespace kivml
