// MD5 as the platform's library offers it.
#pragma once

#include <cstdint>

#define CC_MD5_DIGEST_LENGTH 16
typedef std::uint32_t CC_LONG;
typedef struct {
  void *checksum;
} CC_MD5_CTX;

extern "C" {
int CC_MD5_Init(CC_MD5_CTX *context);
int CC_MD5_Update(CC_MD5_CTX *context, const void *data, CC_LONG length);
int CC_MD5_Final(unsigned char *digest, CC_MD5_CTX *context);
}
