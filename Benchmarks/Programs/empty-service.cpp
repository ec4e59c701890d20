// The least that a service can do: answers Echo with the same text and an
// empty error, by the bus library's own means. The rival of the
// agent's echo.
//
// empty-service BUS-ADDRESS NAME
#include <iostream>
#include <systemd/sd-bus.h>

namespace {

int echo(sd_bus_message *call, void *, sd_bus_error *) {
  const char *text = nullptr;
  int result = sd_bus_message_read(call, "s", &text);
  return result < 0 ? result : sd_bus_reply_method_return(call, "s(sxa{sv})", text, "", 0LL, 0);
}

const sd_bus_vtable members[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Echo", "s", "s(sxa{sv})", echo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

bool serve(sd_bus *bus, const char *address, const char *name) {
  if (sd_bus_set_address(bus, address) < 0 || sd_bus_set_bus_client(bus, 1) < 0 ||
      sd_bus_start(bus) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, "/empty", "org.keepwell.Empty", members, nullptr) <
          0 ||
      sd_bus_request_name(bus, name, 0) < 0)
    return false;
  int result = 0;
  while ((result = sd_bus_process(bus, nullptr)) >= 0)
    if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)
      return false;
  return false;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::cerr << "usage: empty-service BUS-ADDRESS NAME\n";
    return 2;
  }
  sd_bus *bus = nullptr;
  bool served = sd_bus_new(&bus) >= 0 && serve(bus, argv[1], argv[2]);
  sd_bus_unref(bus);
  return served ? 0 : 1;
}
