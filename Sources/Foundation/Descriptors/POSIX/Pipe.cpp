// A pipe as a pair of handles.
#include "Foundation/Descriptors/Pipe.h"

#include "Foundation/Descriptors/Internal/Descriptors.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <utility>

namespace NS {

namespace {

using Handles = std::pair<std::shared_ptr<FileHandle>, std::shared_ptr<FileHandle>>;

// Makes handles that own both descriptors.
Handles handlesOf(descriptors::PipeEnds ends) {
  Descriptor writing(ends.writing); // until its handle has it
  auto forReading = FileHandle::fileHandleWithDescriptor(ends.reading);
  auto forWriting = FileHandle::fileHandleWithDescriptor(writing.release());
  return {std::move(forReading), std::move(forWriting)};
}

} // namespace

std::shared_ptr<Pipe> Pipe::pipe() {
  auto [reading, writing] = handlesOf(descriptors::openPipe());
  return std::shared_ptr<Pipe>(new Pipe(std::move(reading), std::move(writing)));
}

std::shared_ptr<Pipe> Pipe::nullDevice() {
  auto [reading, writing] = handlesOf(descriptors::openNullDevice());
  return std::shared_ptr<Pipe>(new Pipe(std::move(reading), std::move(writing)));
}

} // namespace NS
