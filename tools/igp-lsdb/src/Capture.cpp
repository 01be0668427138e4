#include "Capture.h"

#include <pcap/pcap.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

// The built-in capture, generated at build time from data/frr-initial-lsps.pcap.
extern const unsigned char igpLsdbBuiltinCapture[];
extern const std::size_t igpLsdbBuiltinCapture_size;

namespace IgpLsdb {

struct Capture::Handle {
    pcap_t* pcap = nullptr;
    ~Handle() {
        if (pcap != nullptr) {
            pcap_close(pcap);  // also closes the FILE it was opened on
        }
    }
};

namespace {

// Hands `f` to libpcap, which owns it from then on; null with `error` set when
// the contents are not a capture, or when `f` is null (a failed open: errno).
pcap_t* openOn(FILE* f, std::string& error) {
    if (f == nullptr) {
        error = std::strerror(errno);
        return nullptr;
    }
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    pcap_t* p = pcap_fopen_offline(f, errbuf);
    if (p == nullptr) {
        std::fclose(f);
        error = std::string("not a pcap or pcapng capture (") + errbuf + ")";
    }
    return p;
}

}  // namespace

Capture::Capture(std::string name, pcap_t* pcap, std::uint64_t size)
    : name_(std::move(name)), handle_(std::make_unique<Handle>()), size_(size) {
    handle_->pcap = pcap;
    linkType_ = static_cast<std::uint32_t>(pcap_datalink(pcap));
}

Capture::~Capture() = default;

std::unique_ptr<Capture> Capture::open(const std::string& path, std::string& error) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        error = std::strerror(errno);
        return nullptr;
    }
    if (S_ISDIR(st.st_mode)) {
        error = std::strerror(EISDIR);
        return nullptr;
    }
    pcap_t* p = openOn(std::fopen(path.c_str(), "rb"), error);
    if (p == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<Capture>(new Capture(path, p, static_cast<std::uint64_t>(st.st_size)));
}

std::unique_ptr<Capture> Capture::openBuiltIn(std::string& error) {
    // fmemopen wants a non-const buffer but only reads it in "rb" mode.
    FILE* f = fmemopen(const_cast<unsigned char*>(igpLsdbBuiltinCapture), igpLsdbBuiltinCapture_size, "rb");
    pcap_t* p = openOn(f, error);
    if (p == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<Capture>(new Capture(builtInName, p, igpLsdbBuiltinCapture_size));
}

bool Capture::next(CapturedFrame& frame) {
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    const int rc = pcap_next_ex(handle_->pcap, &header, &data);
    if (rc == 1) {
        frame.number = ++count_;
        frame.bytes = std::span<const std::uint8_t>(data, header->caplen);
        frame.time = static_cast<std::int64_t>(header->ts.tv_sec) * 1000000 + header->ts.tv_usec;
        return true;
    }
    if (rc == PCAP_ERROR) {
        error_ = std::string("read error after frame ") + std::to_string(count_) + ": " +
                 pcap_geterr(handle_->pcap);
    }
    return false;
}

double Capture::progress() const noexcept {
    FILE* f = pcap_file(handle_->pcap);
    if (f == nullptr || size_ == 0) {
        return -1.0;
    }
    const long at = std::ftell(f);
    return at < 0 ? -1.0 : static_cast<double>(at) / static_cast<double>(size_);
}

}  // namespace IgpLsdb
