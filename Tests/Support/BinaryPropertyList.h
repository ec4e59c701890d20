// Builds binary property lists byte by byte, sound ones and others.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kwtest {

inline std::string bigEndian(std::uint64_t number, std::size_t size) {
  std::string bytes;
  while (size > 0) {
    std::size_t shift = 8 * --size;
    bytes += static_cast<char>(shift < 64 ? number >> shift & 0xff : 0);
  }
  return bytes;
}

// The possible faults at the end of a list.
struct BinaryTrailer {
  std::size_t offsetSize = 4;
  std::size_t referenceSize = 2;
  std::uint64_t top = 0;
  std::int64_t extraObjects = 0;     // added to the true count
  std::int64_t extraTableOffset = 0; // added to the true offset
};

// The list of these objects, each given with its marker.
inline std::string binaryPropertyList(const std::vector<std::string> &objects,
                                      const BinaryTrailer &trailer = {}) {
  std::string data = "bplist00", table;
  for (const std::string &object : objects) {
    table += bigEndian(data.size(), trailer.offsetSize);
    data += object;
  }
  std::uint64_t tableOffset = data.size();
  data += table + std::string(6, '\0') + bigEndian(trailer.offsetSize, 1) +
          bigEndian(trailer.referenceSize, 1);
  data += bigEndian(objects.size() + static_cast<std::uint64_t>(trailer.extraObjects), 8);
  data += bigEndian(trailer.top, 8);
  return data + bigEndian(tableOffset + static_cast<std::uint64_t>(trailer.extraTableOffset), 8);
}

// A marker with its count, which takes an integer object of its own from 15 on.
inline std::string marked(unsigned type, std::uint64_t count) {
  if (count < 15)
    return bigEndian(type << 4 | count, 1);
  return bigEndian(type << 4 | 0xf, 1) + "\x12" + bigEndian(count, 4);
}

inline std::string asciiObject(std::string_view text) {
  return marked(0x5, text.size()) + std::string(text);
}

// References are two bytes long, as in the trailer above.
inline std::string references(const std::vector<std::uint64_t> &numbers) {
  std::string bytes;
  for (std::uint64_t number : numbers)
    bytes += bigEndian(number, 2);
  return bytes;
}

inline std::string arrayObject(const std::vector<std::uint64_t> &elements) {
  return marked(0xa, elements.size()) + references(elements);
}

inline std::string dictionaryObject(const std::vector<std::uint64_t> &keys,
                                    const std::vector<std::uint64_t> &values) {
  return marked(0xd, keys.size()) + references(keys) + references(values);
}

} // namespace kwtest
