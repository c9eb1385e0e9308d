#pragma once

#include <frameloom/platform/graphics/TraitCollection.h>

#include <frameloom/platform/Export.h>
#include <optional>
#include <string_view>
#include <vector>

namespace frameloom::platform {

// A colour as red, green, blue and alpha components in 0...1, with an optional different value
// for a dark interface style. A plain value: copy it freely, use it on any thread.
class FRAMELOOM_EXPORT Color {
public:
  struct Components {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;

    friend bool operator==(const Components&, const Components&) = default;
  };

  // Components outside 0...1 are clamped into it; a non-finite component becomes 0.
  Color(double red, double green, double blue, double alpha = 1);
  // `light` for the light and unspecified styles, `dark` for the dark style.
  static Color dynamic(const Color& light, const Color& dark);

  // Addition for hosts: the colour "#RGB", "#RRGGBB" or "#RRGGBBAA" names (hex digits in any
  // letter case; alpha 1 when not written). Throws std::invalid_argument naming the text.
  static Color fromHex(std::string_view text);

  // The components for `traits`, in the order red, green, blue, alpha.
  std::vector<double> rgbaArray(const TraitCollection& traits) const;
  Components resolved(const TraitCollection& traits) const;

  friend bool operator==(const Color&, const Color&) = default;

private:
  Color(Components light, std::optional<Components> dark);

  Components light_;
  std::optional<Components> dark_;
};

} // namespace frameloom::platform
