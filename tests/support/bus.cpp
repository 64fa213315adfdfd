#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

FakeBus* current = nullptr;

/// Notes the request; below zero if it fails.
int answer(std::initializer_list<const char*> words, const std::optional<FakeBus::Failure>& failure,
           sd_bus_error* error) {
  if (current->notes != nullptr) {
    std::string note;
    for (const char* const word : words) note += (note.empty() || *word == '\0' ? "" : " ") + std::string(word);
    current->notes->push_back(note);
  }
  if (!failure) return 1;
  if (failure->name != nullptr) ++current->held;
  error->name = failure->name;
  error->message = failure->message;
  return -EIO;
}

}  // namespace

FakeBus::FakeBus(Transcript* transcript) : notes(transcript) { current = this; }
FakeBus::~FakeBus() { current = nullptr; }

}  // namespace ecu::vorn::ipc::test

using namespace ecu::vorn::ipc::test;

extern "C" {

int sd_bus_default_system(sd_bus** bus) {
  if (current->connect_result < 0) return current->connect_result;
  ++current->held;
  *bus = reinterpret_cast<sd_bus*>(current);
  return current->connect_result;
}

sd_bus* sd_bus_unref(sd_bus* /*bus*/) {
  --current->held;
  return nullptr;
}

void sd_bus_error_free(sd_bus_error* error) {
  if (error->name != nullptr) --current->held;
}

/// A reply is the object path in memory of its own, so that ASan sees a string that is used after the reply is gone.
int sd_bus_call_method(sd_bus* /*bus*/, const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...) {
  va_list arguments;
  va_start(arguments, types);
  const char* const unit = va_arg(arguments, const char*);
  const char* const mode = std::strcmp(types, "ss") == 0 ? va_arg(arguments, const char*) : "";
  va_end(arguments);
  const int result = answer({destination, path, interface, member, unit, mode}, current->method_failure, error);
  if (result < 0) return result;
  ++current->held;
  *reply = reinterpret_cast<sd_bus_message*>(::strdup(current->unit_path.c_str()));
  return result;
}

int sd_bus_message_read(sd_bus_message* reply, const char* types, ...) {
  if (!current->readable || std::strcmp(types, "o") != 0) return -ENXIO;
  va_list arguments;
  va_start(arguments, types);
  *va_arg(arguments, const char**) = reinterpret_cast<const char*>(reply);
  va_end(arguments);
  return 1;
}

sd_bus_message* sd_bus_message_unref(sd_bus_message* reply) {
  if (reply != nullptr) --current->held;
  std::free(reply);
  return nullptr;
}

int sd_bus_get_property_string(sd_bus* /*bus*/, const char* destination, const char* path, const char* interface,
                               const char* member, sd_bus_error* error, char** value) {
  const int result = answer({destination, path, interface, member}, current->property_failure, error);
  if (result >= 0) *value = ::strdup(current->property.c_str());
  return result;
}

int sd_bus_get_property_strv(sd_bus* /*bus*/, const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_error* error, char*** array) {
  const int result = answer({destination, path, interface, member}, current->property_failure, error);
  if (result < 0 || current->list.empty()) return result;
  *array = static_cast<char**>(std::calloc(current->list.size() + 1, sizeof(char*)));
  for (std::size_t i = 0; i < current->list.size(); ++i) (*array)[i] = ::strdup(current->list[i].c_str());
  return result;
}

}  // extern "C"
