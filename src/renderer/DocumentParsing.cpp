#include "renderer/DocumentParsing.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Builds the document from the parser's events. Members of an object are gathered first and the
// object is made once its size is known: the ordered map keeps its members in a vector of pairs
// with a constant key, which it copies, subtrees and all, every time it grows.
class DocumentBuilder final : public nlohmann::json_sax<Json> {
public:
  std::optional<Json> result() { return std::move(root_); }

  bool null() override { return add(Json(nullptr)); }
  bool boolean(bool value) override { return add(Json(value)); }
  bool number_integer(number_integer_t value) override { return add(Json(value)); }
  bool number_unsigned(number_unsigned_t value) override { return add(Json(value)); }
  bool number_float(number_float_t value, const string_t&) override { return add(Json(value)); }
  bool string(string_t& value) override { return add(Json(std::move(value))); }
  bool binary(binary_t& value) override { return add(Json::binary(std::move(value))); }

  bool start_object(std::size_t) override {
    open_.push_back(Open{true, {}, {}});
    if (!spareMembers_.empty()) {
      open_.back().members = std::move(spareMembers_.back());
      spareMembers_.pop_back();
    }
    return true;
  }
  bool key(string_t& name) override {
    open_.back().members.emplace_back(std::move(name), Json());
    return true;
  }
  bool end_object() override {
    Open object = std::move(open_.back());
    open_.pop_back();
    Json built = objectOf(object.members);
    object.members.clear();
    spareMembers_.push_back(std::move(object.members));
    return add(std::move(built));
  }
  bool start_array(std::size_t) override {
    open_.push_back(Open{false, {}, {}});
    return true;
  }
  bool end_array() override {
    Open array = std::move(open_.back());
    open_.pop_back();
    return add(Json(std::move(array.elements)));
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

private:
  struct Open {
    bool isObject;
    std::vector<std::pair<std::string, Json>> members;
    std::vector<Json> elements;
  };

  bool add(Json value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (open_.back().isObject) {
      open_.back().members.back().second = std::move(value);
    } else {
      open_.back().elements.push_back(std::move(value));
    }
    return true;
  }

  // A repeated name keeps its first place and takes its last value, as nlohmann's own parser
  // does. Small objects look names up in place; larger ones through a hash map, so that an object
  // of many members costs no more than its size.
  Json objectOf(std::vector<std::pair<std::string, Json>>& members) {
    firstOf_.clear();
    lastOf_.clear();
    places_.clear();
    const bool hashed = members.size() > linearLookupLimit;
    for (std::size_t index = 0; index < members.size(); ++index) {
      const std::string_view name = members[index].first;
      std::optional<std::size_t> place;
      if (hashed) {
        if (const auto found = places_.find(name); found != places_.end()) {
          place = found->second;
        } else {
          places_.emplace(name, firstOf_.size());
        }
      } else {
        for (std::size_t known = 0; known < firstOf_.size() && !place; ++known) {
          if (members[firstOf_[known]].first == name) {
            place = known;
          }
        }
      }
      if (place) {
        lastOf_[*place] = index;
      } else {
        firstOf_.push_back(index);
        lastOf_.push_back(index);
      }
    }
    Json object = Json::object();
    auto& map = object.get_ref<Json::object_t&>();
    map.reserve(firstOf_.size());
    for (std::size_t place = 0; place < firstOf_.size(); ++place) {
      map.emplace_back(std::move(members[firstOf_[place]].first),
                       std::move(members[lastOf_[place]].second));
    }
    return object;
  }

  // Objects up to this many members find repeated names by comparing them in place, cheaper than
  // hashing for the few members a Lottie object has.
  static constexpr std::size_t linearLookupLimit = 16;

  std::vector<std::size_t> firstOf_;
  std::vector<std::size_t> lastOf_;
  std::unordered_map<std::string_view, std::size_t> places_;
  std::vector<Open> open_;
  // Member lists of finished objects, kept for the next objects: most objects of a document are
  // alike, so their lists rarely grow again.
  std::vector<std::vector<std::pair<std::string, Json>>> spareMembers_;
  std::optional<Json> root_;
};

} // namespace

std::optional<nlohmann::ordered_json> parseDocument(std::string_view text) {
  DocumentBuilder builder;
  if (!Json::sax_parse(text, &builder)) {
    return std::nullopt;
  }
  return builder.result();
}

} // namespace frameloom::renderer
