#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "support/interpose.h"

using ecu::vorn::ipc::test::FakeBus;

static FakeBus* bus = nullptr;

FakeBus::FakeBus(Transcript& transcript) : notes(transcript) { bus = this; }

/// Notes the request. Returns a negative value if it fails.
static int answer(const std::optional<FakeBus::Failure>& failure, sd_bus_error* error,
                  std::initializer_list<const char*> words) {
  std::string note;
  for (const char* const word : words) note += (note.empty() ? "" : " ") + std::string(word);
  bus->notes.push_back(note);
  if (!failure) return 1;
  error->name = failure->name;
  error->message = failure->message;
  if (failure->name != nullptr) ++bus->held;
  return -EIO;
}

extern "C" {

int sd_bus_default_system(sd_bus** connection) {
  if (bus->connect_result < 0) return bus->connect_result;
  ++bus->held;
  *connection = reinterpret_cast<sd_bus*>(bus);
  return bus->connect_result;
}

sd_bus* sd_bus_unref(sd_bus* /*connection*/) {
  --bus->held;
  return nullptr;
}

void sd_bus_error_free(sd_bus_error* error) {
  if (error->name != nullptr) --bus->held;
}

/// A reply is an object path in memory of its own, so that ASan reports a string that is used after its reply was
/// freed.
int sd_bus_call_method(sd_bus* /*connection*/, const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...) {
  va_list arguments;
  va_start(arguments, types);
  std::string words = va_arg(arguments, const char*);
  if (std::strcmp(types, "ss") == 0) words += std::string(" ") + va_arg(arguments, const char*);
  va_end(arguments);
  if (answer(bus->method_failure, error, {destination, path, interface, member, words.c_str()}) < 0) return -EIO;
  ++bus->held;
  *reply = reinterpret_cast<sd_bus_message*>(::strdup("/unit/a"));
  return 0;  // as good as 1: success is not negative
}

int sd_bus_message_read(sd_bus_message* reply, const char* types, ...) {
  if (!bus->readable || std::strcmp(types, "o") != 0) return -ENXIO;
  va_list arguments;
  va_start(arguments, types);
  *va_arg(arguments, const char**) = bus->list.empty() ? nullptr : reinterpret_cast<const char*>(reply);
  va_end(arguments);
  return 1;
}

sd_bus_message* sd_bus_message_unref(sd_bus_message* reply) {
  if (reply != nullptr) --bus->held;
  std::free(reply);
  return nullptr;
}

int sd_bus_get_property_string(sd_bus* /*connection*/, const char* destination, const char* path,
                               const char* interface, const char* member, sd_bus_error* error, char** value) {
  if (answer(bus->property_failure, error, {destination, path, interface, member}) < 0) return -EIO;
  *value = bus->list.empty() ? nullptr : ::strdup(bus->property.c_str());
  return 0;
}

int sd_bus_get_property_strv(sd_bus* /*connection*/, const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_error* error, char*** array) {
  if (answer(bus->property_failure, error, {destination, path, interface, member}) < 0) return -EIO;
  if (bus->list.empty()) return 0;
  *array = static_cast<char**>(std::calloc(bus->list.size() + 1, sizeof(char*)));
  for (std::size_t i = 0; i < bus->list.size(); ++i) (*array)[i] = ::strdup(bus->list[i].c_str());
  return 0;
}

}  // extern "C"
