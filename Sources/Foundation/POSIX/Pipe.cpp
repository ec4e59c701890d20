// A pipe as a pair of handles.
#include "Foundation/Pipe.h"

#include "Foundation/POSIX/Descriptors.h"

namespace NS {

std::shared_ptr<Pipe> Pipe::pipe() {
  descriptors::PipeEnds ends = descriptors::openPipe();
  return std::shared_ptr<Pipe>(new Pipe(FileHandle::fileHandleWithDescriptor(ends.reading),
                                        FileHandle::fileHandleWithDescriptor(ends.writing)));
}

} // namespace NS
