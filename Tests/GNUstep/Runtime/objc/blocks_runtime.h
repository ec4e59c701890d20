// GNUstep's headers want this one of its own runtime; GCC's runtime has none,
// and the blocks library declares the same under another name.
#include <Block.h>
