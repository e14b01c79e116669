// Model files: JSON on any bytes, the model list built from it, and that
// list written back as JSON and built again to the same JSON. No list may
// outlive the input.
#include <stdexcept>
#include <string>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using Json = nlohmann::ordered_json;
  const Json j = Json::parse(esf::fuzz::text_of(data, size), nullptr, /*allow_exceptions=*/false);
  if (j.is_discarded()) return 0;
  const Json& model = j.is_object() && j.contains("model_list") ? j["model_list"] : j;
  const std::size_t lists_before = esf::host::live_lists();
  List list = nullptr;
  try {
    list = esf::host::from_json(model);
  } catch (const std::exception&) {
    ESF_FUZZ_CHECK(esf::host::live_lists() == lists_before);
    return 0;
  }
  const Json once = esf::host::to_json(list);
  List again = esf::host::from_json(once);
  ESF_FUZZ_CHECK(esf::host::to_json(again) == once);
  esf::host::free_list(again);
  esf::host::free_list(list);
  ESF_FUZZ_CHECK(esf::host::live_lists() == lists_before);
  return 0;
}
