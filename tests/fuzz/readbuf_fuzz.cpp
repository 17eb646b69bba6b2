// Both read buffers do what a string does, whatever arrives in whatever pieces and is asked for in whatever order.
#include <stdio.h>
#include <stdlib.h>

#include "tests/io/readbuf_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view choices(reinterpret_cast<const char *>(data), size);
    const std::string faults[] = {readbuf_model<xprb>(choices).run(), readbuf_model<xprb2>(choices).run()};
    for (const std::string &fault : faults)
        if (!fault.empty()) {
            fprintf(stderr, "%s\n", fault.c_str());
            abort();
        }
    return 0;
}
