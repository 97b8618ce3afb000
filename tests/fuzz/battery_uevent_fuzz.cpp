// Battery uevent text through the battery's parser: the result is the same whether the text is
// parsed whole or one line at a time (a long line never reaches into the next), the status is a
// terminated text of one line that fits its field, and a field whose key the text does not hold
// is left as it was.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "node_fuzz.h"
#include "node_parsers.h"

namespace {

using node_fuzz::check;

const int32_t kUntouched = 0x5a5a5a5a;

battery_fields untouched() {
    battery_fields f;
    f.voltage = f.current = f.temperature = f.capacity = kUntouched;
    memset(f.status, 'Z', sizeof(f.status) - 1);
    f.status[sizeof(f.status) - 1] = '\0';
    return f;
}

bool same(const battery_fields& a, const battery_fields& b) {
    return a.voltage == b.voltage && a.current == b.current && a.temperature == b.temperature &&
           a.capacity == b.capacity && strcmp(a.status, b.status) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 16384) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    battery_fields whole = untouched();
    battery_parse_uevent(text.data(), text.size(), &whole);

    battery_fields by_line = untouched();
    for (size_t start = 0; start < text.size();) {
        size_t nl = text.find('\n', start);
        size_t end = nl == std::string::npos ? text.size() : nl + 1;
        battery_parse_uevent(text.data() + start, end - start, &by_line);
        start = end;
    }
    check(same(whole, by_line));

    check(memchr(whole.status, '\0', sizeof(whole.status)) != nullptr);
    const char* keys[] = {"POWER_SUPPLY_VOLTAGE_NOW", "POWER_SUPPLY_CURRENT_NOW",
                          "POWER_SUPPLY_TEMP", "POWER_SUPPLY_CAPACITY"};
    const int32_t values[] = {whole.voltage, whole.current, whole.temperature, whole.capacity};
    for (int i = 0; i < 4; i++) {
        if (text.find(keys[i]) == std::string::npos) check(values[i] == kUntouched);
    }
    // A status that was read is text of one line of the input.
    bool kept = strcmp(whole.status, untouched().status) == 0;
    if (text.find("POWER_SUPPLY_STATUS") == std::string::npos) check(kept);
    check(strchr(whole.status, '\n') == nullptr);
    check(kept || text.find(whole.status) != std::string::npos);
    return 0;
}
