#include "renderer/ModelLoading.h"

#include "renderer/DocumentParsing.h"
#include "renderer/DocumentRepairs.h"
#include "renderer/DrawingBudget.h"
#include "renderer/Limits.h"

#include <rlottie.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace frameloom::renderer {

namespace {

// rlottie looks pictures that the document names by path up under this folder. /dev/null is not
// a folder, so no such path resolves and a document can never make the renderer read local files;
// the pictures of an archive are handed over inlined instead.
constexpr const char* unreachableResourcePath = "/dev/null/";

// The side of the picture that tells whether a model draws anything: small enough to cost little
// next to the load, large enough that thin shapes still cover a pixel.
constexpr std::size_t probeSide = 64;

std::unique_ptr<rlottie::Animation> load(std::string document) {
  // Model caching off: rlottie would otherwise hand a later document the model of an earlier one
  // loaded under the same key.
  return rlottie::Animation::loadFromData(std::move(document), std::string(),
                                          unreachableResourcePath, false);
}

bool nestsTooDeep(std::string_view json) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '{' || c == '[') {
      if (++depth > limits::maxNesting) {
        return true;
      }
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    }
  }
  return false;
}

// Whether the model's middle frame, drawn small, leaves every pixel transparent.
bool drawsNothing(rlottie::Animation& model) {
  std::size_t width = 0;
  std::size_t height = 0;
  model.size(width, height);
  if (width == 0 || height == 0) {
    return true;
  }
  std::vector<std::uint32_t> pixels(probeSide * probeSide);
  rlottie::Surface surface(pixels.data(), probeSide, probeSide, probeSide * 4);
  model.renderSync(model.totalFrame() / 2, surface, true);
  for (const std::uint32_t pixel : pixels) {
    if (pixel >> 24 != 0) {
      return false;
    }
  }
  return true;
}

std::string dumped(const nlohmann::ordered_json& document) {
  return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace

std::unique_ptr<rlottie::Animation> loadRepairedModel(std::string document,
                                                      std::optional<Refusal>& refusal) {
  // A document that cannot be checked against the budgets is not handed to rlottie at all.
  if (nestsTooDeep(document)) {
    refusal = Refusal::nestedTooDeep;
    return nullptr;
  }
  auto parsedDocument = parseDocument(document);
  if (!parsedDocument) {
    return nullptr;
  }
  auto& parsed = *parsedDocument;
  const bool rewritten = repairDocument(parsed, false);
  const BudgetFit fit = fitDrawingBudget(parsed);
  if (fit == BudgetFit::refused) {
    refusal = Refusal::tooManyDrawnItems;
    return nullptr;
  }
  if (rewritten || fit == BudgetFit::clamped) {
    document = dumped(parsed);
  }
  auto model = load(std::move(document));
  if (model && !drawsNothing(*model)) {
    return model;
  }
  if (!repairDocument(parsed, true)) {
    return model;
  }
  auto repaired = load(dumped(parsed));
  if (repaired && (!model || !drawsNothing(*repaired))) {
    return repaired;
  }
  return model;
}

} // namespace frameloom::renderer
