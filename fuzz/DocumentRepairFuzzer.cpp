// Parses the input as a Lottie document the way the renderer does, runs every document repair
// (those for misread documents, then those for refused ones) and the drawing budget on it, and
// writes the result out as the renderer hands it to rlottie, which must parse back. Inputs
// nesting deeper than the renderer accepts are skipped: it refuses them before parsing. A throw,
// a crash, a hang or runaway memory is a finding.
#include "renderer/DocumentParsing.h"
#include "renderer/DocumentRepairs.h"
#include "renderer/DrawingBudget.h"
#include "renderer/Limits.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace frameloom::renderer;

// Counts brackets, strings included: never less than the depth the renderer's own check sees.
bool nestsTooDeep(std::string_view text) {
  std::size_t depth = 0;
  for (const char c : text) {
    if (c == '{' || c == '[') {
      if (++depth > limits::maxNesting) {
        return true;
      }
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    }
  }
  return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (nestsTooDeep(text)) {
    return 0;
  }
  auto document = parseDocument(text);
  if (!document) {
    return 0;
  }
  repairDocument(*document, false);
  if (fitDrawingBudget(*document) == BudgetFit::refused) {
    return 0;
  }
  repairDocument(*document, true);
  const std::string written =
      document->dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  if (!parseDocument(written)) {
    std::fprintf(stderr, "a repaired document does not parse back\n");
    std::abort();
  }
  return 0;
}
