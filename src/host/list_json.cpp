// Lists as JSON, both ways.
#include <cctype>
#include <set>
#include <stdexcept>
#include <string>

#include "host/host.h"
#include "host/host_internal.h"
#include "host/list_store.h"

namespace esf::host {

using namespace esf::host::internal;

namespace {

using Json = nlohmann::ordered_json;

Json value_to_json(const SLIST_ITEM* item, FMCOM* fmcomp, std::set<ListId>& path);

Json list_to_json(List list, FMCOM* fmcomp, std::set<ListId>& path) {
  if (list == nullptr) return nullptr;
  if (!path.insert(list->id).second) throw std::invalid_argument("list holds itself; it has no JSON form");
  bool any_named = false;
  bool all_named = true;
  std::set<std::string> names;
  bool distinct = true;
  for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next) {
    if (item->name == nullptr) {
      all_named = false;
      continue;
    }
    any_named = true;
    std::string upper = item_name(item);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (!names.insert(upper).second) distinct = false;
  }
  Json out;
  if (!any_named) {
    out = Json::array();
    for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next)
      out.push_back(value_to_json(item, fmcomp, path));
  } else if (all_named && distinct) {
    out = Json::object();
    for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next)
      out[item_name(item)] = value_to_json(item, fmcomp, path);
  } else {
    Json entries = Json::array();
    for (const SLIST_ITEM* item = list->head; item != nullptr; item = item->next) {
      Json entry = Json::object();
      entry["name"] = item->name != nullptr ? Json(item_name(item)) : Json(nullptr);
      entry["value"] = value_to_json(item, fmcomp, path);
      entries.push_back(std::move(entry));
    }
    out = Json::object();
    out["$items"] = std::move(entries);
  }
  path.erase(list->id);
  return out;
}

Json value_to_json(const SLIST_ITEM* item, FMCOM* fmcomp, std::set<ListId>& path) {
  switch (item->type) {
    case SL_NUMBER: {
      const double v = item->data.d;
      if (!internal::is_missing(v)) return v;
      const std::string kind = internal::missing_kind_name(v);
      if (kind == ".") return nullptr;
      return Json{{"$missing", kind}};
    }
    case SL_INTEGER:
    case SL_COUNT:
      return item->data.i;
    case SL_SHORT:
      return static_cast<long>(item->data.s);
    case SL_BOOLEAN:
      return item->data.b != 0;
    case SL_CHAR:
      return std::string(item->data.c.p != nullptr ? item->data.c.p : "", static_cast<size_t>(item->data.c.len));
    case SL_LIST:
      return list_to_json(lookup(fmcomp, item->data.id), fmcomp, path);
    default:
      return Json{{"$empty", true}};
  }
}

// Lists nest at most this deep when built from JSON.  The model lists the
// methods write nest four levels; the limit keeps a hostile file from
// exhausting the stack of the recursive conversion.
constexpr int kMaxJsonDepth = 64;

void fill_from_json(List list, const Json& json, const std::string& where, int depth);

// Appends one value as an item named `name` (empty: unnamed).
void append_json_value(List list, const std::string& name, const Json& value, const std::string& where, int depth) {
  SLIST_ITEM* item = new_item(name.empty() ? nullptr : name.data(), static_cast<int>(name.size()));
  append_item(list, item);
  if (value.is_null()) {
    set_double(item, internal::ordinary_missing());
  } else if (value.is_boolean()) {
    item->type = SL_BOOLEAN;
    item->data.b = value.get<bool>() ? 1 : 0;
  } else if (value.is_number_integer()) {
    set_long(item, value.get<long>());
  } else if (value.is_number()) {
    set_double(item, value.get<double>());
  } else if (value.is_string()) {
    const auto& s = value.get_ref<const std::string&>();
    set_chars(item, s.data(), static_cast<int>(s.size()));
  } else if (value.is_object() && value.size() == 1 && value.contains("$missing")) {
    const Json& kind = value["$missing"];
    double v = 0;
    if (!kind.is_string() || !internal::missing_from_name(kind.get<std::string>(), &v))
      throw std::invalid_argument(where + ": \"$missing\" must be a missing-value name such as \".A\"");
    set_double(item, v);
  } else if (value.is_object() && value.size() == 1 && value.contains("$empty")) {
    item->type = SL_EMPTY;
  } else {
    List sub = nullptr;
    slnewl(&sub, list->fmcomp, 84);
    item->type = SL_LIST;
    item->data.id = sub->id;
    fill_from_json(sub, value, where, depth + 1);
  }
}

void fill_from_json(List list, const Json& json, const std::string& where, int depth) {
  if (depth > kMaxJsonDepth) {
    throw std::invalid_argument("lists nest more than " + std::to_string(kMaxJsonDepth) + " levels deep, at " +
                                where.substr(0, 60) + (where.size() > 60 ? "..." : ""));
  }
  if (json.is_array()) {
    for (std::size_t i = 0; i < json.size(); ++i)
      append_json_value(list, {}, json[i], where + "[" + std::to_string(i) + "]", depth);
  } else if (json.is_object() && json.size() == 1 && json.contains("$items")) {
    const Json& entries = json["$items"];
    if (!entries.is_array()) throw std::invalid_argument(where + ".$items: must be an array");
    for (std::size_t i = 0; i < entries.size(); ++i) {
      const Json& entry = entries[i];
      const std::string at = where + ".$items[" + std::to_string(i) + "]";
      if (!entry.is_object() || !entry.contains("value"))
        throw std::invalid_argument(at + ": must be an object with \"name\" and \"value\"");
      std::string name;
      if (entry.contains("name") && !entry["name"].is_null()) {
        if (!entry["name"].is_string()) throw std::invalid_argument(at + ".name: must be a string or null");
        name = entry["name"].get<std::string>();
      }
      append_json_value(list, name, entry["value"], at + "." + (name.empty() ? "value" : name), depth);
    }
  } else if (json.is_object()) {
    for (const auto& [key, value] : json.items()) {
      if (key.empty()) throw std::invalid_argument(where + ": an item name must not be empty");
      append_json_value(list, key, value, where + "." + key, depth);
    }
  } else {
    throw std::invalid_argument(where + ": a list must be a JSON object or array");
  }
}

}  // namespace

nlohmann::ordered_json to_json(List list) {
  std::set<ListId> path;
  return list_to_json(list, list != nullptr ? list->fmcomp : fmcomp(), path);
}

List from_json(const nlohmann::ordered_json& json) {
  List list = new_list();
  try {
    fill_from_json(list, json, "$", 1);
  } catch (...) {
    free_list(list);
    throw;
  }
  return list;
}

}  // namespace esf::host
