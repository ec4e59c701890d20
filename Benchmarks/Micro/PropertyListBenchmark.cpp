// Reading property lists of both forms, beside the C library for them.
#include "Foundation/PropertyLists/PropertyList.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <plist/plist.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

// As an application's preferences or a folder of launchd jobs look: small
// dictionaries of short strings, numbers and lists.
std::string listAsXML() {
  NS::PropertyList list{NS::PropertyList::Dictionary{}};
  for (int index = 0; index < 500; ++index) {
    NS::PropertyList job{NS::PropertyList::Dictionary{}};
    std::string label = "com.example.job." + std::to_string(index);
    job.setObjectForKey(label, "Label");
    job.setObjectForKey(index % 2 == 0, "RunAtLoad");
    job.setObjectForKey(index * 60, "StartInterval");
    NS::PropertyList::Array arguments;
    for (const char *argument : {"/usr/bin/env", "--quiet", "sh", "-c", "exit 0"})
      arguments.emplace_back(argument);
    job.setObjectForKey(NS::PropertyList(arguments), "ProgramArguments");
    list.setObjectForKey(job, label);
  }
  return NS::dataWithPropertyList(list, nullptr).value();
}

std::string listAsBinary() {
  std::string xml = listAsXML();
  plist_t list = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &list);
  char *bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(list, &bytes, &length);
  std::string binary(bytes, length);
  std::free(bytes);
  plist_free(list);
  return binary;
}

void countBytes(benchmark::State &state, std::string_view data) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(data.size()));
}

void readOurs(benchmark::State &state, const std::string &data) {
  for (auto _ : state) {
    auto list = NS::propertyListWithData(data, nullptr);
    if (!list || list->dictionary()->size() != 500)
      throw std::runtime_error("the list was not read");
    benchmark::DoNotOptimize(list);
  }
  countBytes(state, data);
}

using Reader = void (*)(const char *bytes, std::uint32_t length, plist_t *list);

void readTheirs(benchmark::State &state, const std::string &data, Reader read) {
  for (auto _ : state) {
    plist_t list = nullptr;
    read(data.data(), static_cast<std::uint32_t>(data.size()), &list);
    if (plist_dict_get_size(list) != 500)
      throw std::runtime_error("the list was not read");
    plist_free(list);
  }
  countBytes(state, data);
}

void binaryListOurs(benchmark::State &state) {
  readOurs(state, listAsBinary());
}
void binaryListLibplist(benchmark::State &state) {
  readTheirs(state, listAsBinary(), plist_from_bin);
}
void xmlListOurs(benchmark::State &state) {
  readOurs(state, listAsXML());
}
void xmlListLibplist(benchmark::State &state) {
  readTheirs(state, listAsXML(), plist_from_xml);
}

BENCHMARK(binaryListOurs);
BENCHMARK(binaryListLibplist);
BENCHMARK(xmlListOurs);
BENCHMARK(xmlListLibplist);

} // namespace
