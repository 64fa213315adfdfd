#include "payload_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "hex.h"
#include "input_error.h"

namespace keltipc {

std::vector<char> read_payload_file(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file == nullptr) throw InputError(path, std::strerror(errno));
  std::vector<char> payload(longest_payload + 1);  // One more, to tell a file that is too long.
  payload.resize(std::fread(payload.data(), 1, payload.size(), file.get()));
  if (std::ferror(file.get()) != 0) throw InputError(path, std::strerror(errno));
  if (payload.size() > longest_payload) throw InputError(path, "more than 65535 bytes");
  return payload;
}

}  // namespace keltipc
