// igp-lsdb-gen: writes the generated LSP set of N routers as a pcap of IS-IS
// LSP PDUs, for the decoder, the capture tool, fuzzers and other
// implementations. The same arguments always give the same file.
//
//     igp-lsdb-gen [--routers N] [--seed S] [--level 1|2] [--sequence Q] [-o FILE]
//
// Without -o (or with "-o -") the pcap goes to standard output; a summary
// goes to standard error.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "gen/Encoder.h"
#include "gen/Generator.h"

int main(int argc, char** argv) {
    std::uint32_t routers = 1000;
    std::uint64_t seed = 1;
    IgpBench::EncodeParams params;
    std::string out = "-";

    CLI::App app{
        "Writes a generated IS-IS domain as a pcap of LSP PDUs (802.3 + LLC frames, valid\n"
        "checksums, fragments of at most 1492 octets). The same arguments always give the same file.",
        "igp-lsdb-gen"};
    app.option_defaults()->always_capture_default();
    app.add_option("--routers", routers, "Routers in the domain")->check(CLI::Range(1u, 1000000u));
    app.add_option("--seed", seed, "Generator seed");
    app.add_option("--level", params.level, "IS-IS level of the LSPs")->check(CLI::IsMember({1u, 2u}));
    app.add_option("--sequence", params.sequence, "Sequence number of every LSP");
    app.add_option("-o,--output", out, "Output file, - for standard output");
    CLI11_PARSE(app, argc, argv);

    if (out == "-" && ::isatty(STDOUT_FILENO) == 1) {
        std::fprintf(stderr, "igp-lsdb-gen: refusing to write a pcap to a terminal; use -o FILE or a pipe\n");
        return 2;
    }
    const IgpBench::Topology t = IgpBench::generate(routers, seed);
    const auto pdus = IgpBench::encodeTopology(t, params);
    if (out == "-") {
        IgpBench::writePcap(std::cout, pdus, params.level);
        std::cout.flush();
        if (!std::cout) {
            std::fprintf(stderr, "igp-lsdb-gen: cannot write to standard output\n");
            return 1;
        }
    } else {
        std::ofstream file(out, std::ios::binary);
        IgpBench::writePcap(file, pdus, params.level);
        file.close();
        if (!file) {
            std::fprintf(stderr, "igp-lsdb-gen: cannot write %s\n", out.c_str());
            return 1;
        }
    }
    std::fprintf(stderr, "%u routers, %u pseudonodes: %zu LSPs in %zu PDUs, %zu neighbors, %zu prefixes\n",
                 t.routers, t.pseudonodes, t.lsps.size(), pdus.size(), t.neighbors, t.prefixes);
    return 0;
}
