#include "Capture.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

// The built-in capture, generated at build time from data/frr-initial-lsps.pcap.
extern const unsigned char igpLsdbBuiltinCapture[];
extern const std::size_t igpLsdbBuiltinCapture_size;

namespace IgpLsdb {

namespace {

volatile std::sig_atomic_t stopRequested = 0;
// The live capture that stopAll() breaks out of; at most one is open at a time.
std::atomic<pcap_t*> liveHandle{nullptr};

// A gzip-compressed (or plain: zlib passes it through) stream behind a stdio
// FILE, which is all libpcap reads from.
struct GzSource {
    gzFile gz = nullptr;
    bool cutShort = false;  // the input ended inside a compressed stream
    std::string error;      // zlib's message after a read error
};

ssize_t gzSourceRead(void* cookie, char* buf, std::size_t size) {
    auto* s = static_cast<GzSource*>(cookie);
    const int r = gzread(s->gz, buf, static_cast<unsigned>(size > INT_MAX ? INT_MAX : size));
    int err = Z_OK;
    const char* message = gzerror(s->gz, &err);
    if (err == Z_BUF_ERROR) {
        s->cutShort = true;  // what was decompressed before the cut still counts
        return r > 0 ? r : 0;
    }
    if (r < 0) {
        s->error = message;
        errno = EIO;
        return -1;
    }
    return r;
}

// A pcapng file may carry any 64-bit time: what does not fit saturates.
std::int64_t micros(const timeval& t) noexcept {
    std::int64_t us = 0;
    if (__builtin_mul_overflow(static_cast<std::int64_t>(t.tv_sec), std::int64_t{1000000}, &us) ||
        __builtin_add_overflow(us, static_cast<std::int64_t>(t.tv_usec), &us)) {
        return t.tv_sec < 0 ? INT64_MIN : INT64_MAX;
    }
    return us;
}

int gzSourceClose(void* cookie) {
    auto* s = static_cast<GzSource*>(cookie);
    const int rc = gzclose(s->gz);
    delete s;
    return rc == Z_OK ? 0 : EOF;
}

}  // namespace

struct Capture::Handle {
    pcap_t* pcap = nullptr;
    GzSource* gz = nullptr;  // owned by the FILE that libpcap owns
    ~Handle() {
        if (pcap != nullptr) {
            pcap_t* expected = pcap;
            liveHandle.compare_exchange_strong(expected, nullptr);
            pcap_close(pcap);  // also closes the FILE it was opened on
        }
    }
};

namespace {

// `fd` is owned from here on, whatever happens.
FILE* gzFileOn(int fd, GzSource*& source, std::string& error) {
    gzFile gz = gzdopen(fd, "rb");
    if (gz == nullptr) {
        ::close(fd);
        error = "cannot start decompressing";
        return nullptr;
    }
    gzbuffer(gz, 128 * 1024);
    source = new GzSource;
    source->gz = gz;
    FILE* f = fopencookie(source, "rb", cookie_io_functions_t{gzSourceRead, nullptr, nullptr, gzSourceClose});
    if (f == nullptr) {
        error = std::strerror(errno);
        gzSourceClose(source);
        source = nullptr;
    }
    return f;
}

bool isGzip(int fd) {
    unsigned char magic[2] = {};
    return ::pread(fd, magic, sizeof magic, 0) == 2 && magic[0] == 0x1f && magic[1] == 0x8b;
}

}  // namespace

Capture::Capture(std::string name, std::unique_ptr<Handle> handle, std::uint64_t size)
    : name_(std::move(name)), handle_(std::move(handle)), size_(size) {
    linkType_ = static_cast<std::uint32_t>(pcap_datalink(handle_->pcap));
}

Capture::~Capture() = default;

namespace {

// Hands `f` to libpcap, which owns it from then on; false with `error` set when
// the contents are not a capture, or when `f` is null (a failed open: errno).
bool openOn(FILE* f, Capture::Handle& h, std::string& error) {
    if (f == nullptr) {
        if (error.empty()) {
            error = std::strerror(errno);
        }
        return false;
    }
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    h.pcap = pcap_fopen_offline(f, errbuf);
    if (h.pcap == nullptr) {
        std::fclose(f);
        h.gz = nullptr;
        error = std::string("not a pcap or pcapng capture (") + errbuf + ")";
        return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<Capture> Capture::open(const std::string& path, std::string& error) {
    error.clear();
    if (path.empty()) {
        error = "an empty name is not a capture";
        return nullptr;
    }
    auto h = std::make_unique<Handle>();
    struct stat st {};
    FILE* f = nullptr;
    std::string name = path;
    if (path == "-") {
        // Standard input may be a pipe: it cannot be peeked at, so it always goes
        // through zlib, which passes an uncompressed stream through unchanged.
        name = stdinName;
        const int fd = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
        if (fd < 0 || ::fstat(fd, &st) != 0) {
            error = std::strerror(errno);
            if (fd >= 0) {
                ::close(fd);
            }
            return nullptr;
        }
        f = gzFileOn(fd, h->gz, error);
    } else {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0 || ::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
            error = std::strerror(fd < 0 ? errno : S_ISDIR(st.st_mode) ? EISDIR : errno);
            if (fd >= 0) {
                ::close(fd);
            }
            return nullptr;
        }
        if (isGzip(fd)) {
            f = gzFileOn(fd, h->gz, error);
        } else {
            f = ::fdopen(fd, "rb");
            if (f == nullptr) {
                error = std::strerror(errno);
                ::close(fd);
                return nullptr;
            }
        }
    }
    if (!openOn(f, *h, error)) {
        return nullptr;
    }
    const std::uint64_t size = S_ISREG(st.st_mode) ? static_cast<std::uint64_t>(st.st_size) : 0;
    return std::unique_ptr<Capture>(new Capture(std::move(name), std::move(h), size));
}

std::unique_ptr<Capture> Capture::openBuiltIn(std::string& error) {
    error.clear();
    auto h = std::make_unique<Handle>();
    // fmemopen wants a non-const buffer but only reads it in "rb" mode.
    FILE* f = fmemopen(const_cast<unsigned char*>(igpLsdbBuiltinCapture), igpLsdbBuiltinCapture_size, "rb");
    if (!openOn(f, *h, error)) {
        return nullptr;
    }
    return std::unique_ptr<Capture>(new Capture(builtInName, std::move(h), igpLsdbBuiltinCapture_size));
}

std::unique_ptr<Capture> Capture::openLive(const std::string& interface, std::string& error) {
    error.clear();
    char errbuf[PCAP_ERRBUF_SIZE] = {};
    auto h = std::make_unique<Handle>();
    h->pcap = pcap_create(interface.c_str(), errbuf);
    if (h->pcap == nullptr) {
        error = errbuf;
        return nullptr;
    }
    pcap_t* p = h->pcap;
    // In immediate mode every slot of the kernel's ring holds a whole snapshot: a jumbo frame's
    // length (an IS-IS PDU never exceeds the link's MTU) and a large buffer keep thousands of
    // frames, so that a burst of LSPs is not dropped while the tool merges.
    pcap_set_snaplen(p, 9216);
    pcap_set_buffer_size(p, 32 * 1024 * 1024);
    pcap_set_promisc(p, 1);
    pcap_set_immediate_mode(p, 1);  // each LSP as it arrives, not a buffer's worth later
    pcap_set_timeout(p, 100);
    const int rc = pcap_activate(p);
    if (rc < 0) {
        error = pcap_statustostr(rc);
        // libpcap's own message, when it says more than the status does.
        if (const char* detail = pcap_geterr(p); detail != nullptr && *detail != '\0' && error != detail) {
            error += std::string(": ") + detail;
        }
        return nullptr;
    }
    bpf_program filter{};
    if (pcap_compile(p, &filter, liveFilter, 1, PCAP_NETMASK_UNKNOWN) != 0) {
        error = std::string("capture filter: ") + pcap_geterr(p);
        return nullptr;
    }
    const bool set = pcap_setfilter(p, &filter) == 0;
    pcap_freecode(&filter);
    if (!set) {
        error = std::string("capture filter: ") + pcap_geterr(p);
        return nullptr;
    }
    auto capture = std::unique_ptr<Capture>(new Capture(interface, std::move(h), 0));
    capture->live_ = true;
    liveHandle.store(p);
    return capture;
}

void Capture::stopAll() noexcept {
    stopRequested = 1;
    if (pcap_t* p = liveHandle.load()) {
        pcap_breakloop(p);  // wakes a capture waiting for packets; safe in a signal handler
    }
}

bool Capture::next(CapturedFrame& frame) {
    for (;;) {
        if (live_ && stopRequested != 0 && !draining_) {
            // What the kernel holds arrived before the stop: read it without
            // waiting, up to the frames stamped since, which a flood could
            // keep coming.
            char errbuf[PCAP_ERRBUF_SIZE] = {};
            if (pcap_setnonblock(handle_->pcap, 1, errbuf) != 0) {
                return false;
            }
            timeval now{};
            gettimeofday(&now, nullptr);
            stoppedAt_ = micros(now);
            draining_ = true;
        }
        pcap_pkthdr* header = nullptr;
        const u_char* data = nullptr;
        const int rc = pcap_next_ex(handle_->pcap, &header, &data);
        if (rc == 1) {
            if (draining_ && micros(header->ts) > stoppedAt_) {
                return false;
            }
            frame.number = ++count_;
            frame.timeMicros = micros(header->ts);
            frame.bytes = std::span<const std::uint8_t>(data, header->caplen);
            return true;
        }
        if (rc == 0) {
            if (draining_) {
                return false;  // nothing more was received before the stop
            }
            continue;  // a live capture's timeout: look at the stop request again
        }
        if (rc == PCAP_ERROR_BREAK && live_) {
            continue;  // stopAll() woke the wait: drain
        }
        const GzSource* gz = handle_->gz;
        if (rc == PCAP_ERROR) {
            error_ = pcap_geterr(handle_->pcap);
            if (gz != nullptr && !gz->error.empty()) {
                error_ = "decompression failed: " + gz->error;
            }
        } else if (gz != nullptr && gz->cutShort) {
            // The cut fell between two records: libpcap saw a clean end.
            error_ = "the compressed stream is cut short";
        }
        return false;
    }
}

std::uint64_t Capture::dropped() const noexcept {
    pcap_stat stats{};
    if (!live_ || pcap_stats(handle_->pcap, &stats) != 0) {
        return 0;
    }
    return std::uint64_t{stats.ps_drop} + stats.ps_ifdrop;
}

double Capture::progress() const noexcept {
    if (size_ == 0) {
        return -1.0;
    }
    if (handle_->gz != nullptr) {
        const z_off_t at = gzoffset(handle_->gz->gz);
        return at < 0 ? -1.0 : static_cast<double>(at) / static_cast<double>(size_);
    }
    FILE* f = pcap_file(handle_->pcap);
    const long at = f == nullptr ? -1 : std::ftell(f);
    return at < 0 ? -1.0 : static_cast<double>(at) / static_cast<double>(size_);
}

}  // namespace IgpLsdb
