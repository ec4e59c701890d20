// A pipe as a pair of handles.
#include "Foundation/Pipe.h"

#include "Foundation/POSIX/Descriptor.h"
#include "Foundation/POSIX/Descriptors.h"

#include <utility>

namespace NS {

std::shared_ptr<Pipe> Pipe::pipe() {
  descriptors::PipeEnds ends = descriptors::openPipe();
  Descriptor writing(ends.writing); // until its handle has it
  auto forReading = FileHandle::fileHandleWithDescriptor(ends.reading);
  auto forWriting = FileHandle::fileHandleWithDescriptor(writing.release());
  return std::shared_ptr<Pipe>(new Pipe(std::move(forReading), std::move(forWriting)));
}

} // namespace NS
