// igp-lsdb-gen: writes the generated LSP set of N routers as a pcap of IS-IS
// LSP PDUs, for the decoder, the capture tool, fuzzers and other
// implementations. The same arguments always give the same file.
//
//     igp-lsdb-gen [--routers N] [--seed S] [--level 1|2] [--sequence Q] [-o FILE]
//
// Without -o (or with "-o -") the pcap goes to standard output; a summary
// goes to standard error.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "gen/Encoder.h"
#include "gen/Generator.h"

namespace {

int usage(const char* why) {
    std::fprintf(stderr,
                 "igp-lsdb-gen: %s\n"
                 "usage: igp-lsdb-gen [--routers N] [--seed S] [--level 1|2] [--sequence Q] [-o FILE]\n",
                 why);
    return 2;
}

std::uint64_t number(const char* text) {
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text, &end, 0);
    if (end == text || *end != '\0') {
        throw std::invalid_argument(std::string("not a number: ") + text);
    }
    return v;
}

}  // namespace

int main(int argc, char** argv) {
    std::uint32_t routers = 1000;
    std::uint64_t seed = 1;
    IgpBench::EncodeParams params;
    std::string out = "-";
    try {
        for (int i = 1; i < argc; ++i) {
            const std::string arg = argv[i];
            if (i + 1 >= argc) {
                return usage(("missing value after " + arg).c_str());
            }
            const char* value = argv[++i];
            if (arg == "--routers") {
                routers = static_cast<std::uint32_t>(number(value));
            } else if (arg == "--seed") {
                seed = number(value);
            } else if (arg == "--level") {
                params.level = static_cast<unsigned>(number(value));
                if (params.level != 1 && params.level != 2) {
                    return usage("level must be 1 or 2");
                }
            } else if (arg == "--sequence") {
                params.sequence = static_cast<std::uint32_t>(number(value));
            } else if (arg == "-o") {
                out = value;
            } else {
                return usage(("unknown argument " + arg).c_str());
            }
        }
        const IgpBench::Topology t = IgpBench::generate(routers, seed);
        const auto pdus = IgpBench::encodeTopology(t, params);
        if (out == "-") {
            IgpBench::writePcap(std::cout, pdus, params.level);
            std::cout.flush();
        } else {
            std::ofstream file(out, std::ios::binary);
            IgpBench::writePcap(file, pdus, params.level);
            if (!file) {
                throw std::runtime_error("cannot write " + out);
            }
        }
        std::fprintf(stderr,
                     "%u routers, %u pseudonodes: %zu LSPs in %zu PDUs, %zu neighbors, %zu prefixes\n",
                     t.routers, t.pseudonodes, t.lsps.size(), pdus.size(), t.neighbors, t.prefixes);
    } catch (const std::exception& e) {
        return usage(e.what());
    }
    return 0;
}
