// Both read buffers do what a string does, whatever arrives in whatever pieces and is asked for in whatever order.
#include "tests/fuzz/target.h"

#include <stdio.h>

#include "tests/io/readbuf_model.h"

static void check(std::string_view input) {
    for (const std::string &fault : {readbuf_model<xprb>(input).run(), readbuf_model<xprb2>(input).run()}) {
        fputs(fault.c_str(), stderr);
        require(fault.empty());
    }
}
