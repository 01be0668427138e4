#include "Compare.h"

#include <sstream>

namespace IgpBench {

namespace IC = Routing::IgpCommon;

namespace {

/// Collects the first difference; later checks are skipped once one is found.
class Diff {
public:
    bool found() const noexcept { return !text_.empty(); }
    const std::string& text() const noexcept { return text_; }

    template <class A, class B>
    void check(const std::string& where, const char* what, const A& a, const B& b) {
        if (!found() && !(a == b)) {
            std::ostringstream os;
            os << where << ": " << what << " " << a << " != " << b;
            text_ = os.str();
        }
    }
    void fail(const std::string& where, const char* what) {
        if (!found()) {
            text_ = where + ": " + what;
        }
    }

private:
    std::string text_;
};

// Null on both sides, or set on both and equal by `same`.
template <class T, class Same>
void checkShared(Diff& d, const std::string& where, const char* what, const Poldo::Ptr<T>& a,
                 const Poldo::Ptr<T>& b, Same same) {
    const bool differ = !a != !b || (a && !same(*a, b.get()));
    if (differ) {
        d.fail(where, what);
    }
}

void compareNode(Diff& d, const std::string& at, const IC::Node& a, const IC::Node& b) {
    d.check(at, "flags", a.flags(), b.flags());
    d.check(at, "host name", a.hostName(), b.hostName());
    d.check(at, "IPv4 router ID", a.ipv4RouterId(), b.ipv4RouterId());
    d.check(at, "IPv6 router ID", a.ipv6RouterId(), b.ipv6RouterId());
    checkShared(d, at, "area addresses differ", a.isisAreaIdCol(), b.isisAreaIdCol(),
                [](const IC::IsisAreaIdCol& x, const IC::IsisAreaIdCol* y) { return x.compareAreaIds(y); });
    checkShared(d, at, "SR capabilities differ", a.srCapabilities(), b.srCapabilities(),
                [](const IC::SrCapabilities& x, const IC::SrCapabilities* y) { return x.compare(y); });
    checkShared(d, at, "SR local blocks differ", a.srlb(), b.srlb(),
                [](const IC::SrCapabilities& x, const IC::SrCapabilities* y) { return x.compare(y); });
    checkShared(d, at, "MSDs differ", a.msdCol(), b.msdCol(),
                [](const IC::IgpMsdCol& x, const IC::IgpMsdCol* y) { return x.compareMsdCol(y); });
    checkShared(d, at, "flex-algo definitions differ", a.fadCol(), b.fadCol(),
                [](const IC::IgpFlexAlgoDefinitionCol& x, const IC::IgpFlexAlgoDefinitionCol* y) {
                    return x.fadCount() == y->fadCount() && x.compareFadCol(y);
                });
    checkShared(d, at, "topologies differ", a.mtIdCol(), b.mtIdCol(),
                [](const IC::IgpMultiTopologyIdCol& x, const IC::IgpMultiTopologyIdCol* y) {
                    return x.compareMtIdCol(y);
                });
}

// Neighbors and prefixes compare attribute by attribute through their descriptions.
template <class E>
void compareDescribed(Diff& d, const std::string& at, const E& a, const E& b) {
    const std::string_view attr = Kest::firstDifference(a, b);
    if (!attr.empty()) {
        d.fail(at, (std::string(attr) + " differs").c_str());
    }
}

}  // namespace

std::string firstDifference(const IC::IgpLspDatabase& a, const IC::IgpLspDatabase& b) {
    Diff d;
    d.check("database", "entries", a.lspCount(), b.lspCount());
    for (auto it = a.lsp().begin(); it != a.lsp().end() && !d.found(); ++it) {
        const IC::IgpLsp& ea = **it;
        const std::string at = "node " + ea.nodeId().toStrep();
        const Poldo::Ptr<IC::IgpLsp> eb = b.lsp(ea.nodeId());
        if (!eb) {
            d.fail(at, "missing on the right");
            break;
        }
        if (!ea.node() || !eb->node()) {
            d.check(at, "has a node", static_cast<bool>(ea.node()), static_cast<bool>(eb->node()));
        } else {
            compareNode(d, at, *ea.node(), *eb->node());
        }
        d.check(at, "neighbors", ea.neighbor().size(), eb->neighbor().size());
        for (auto n = ea.neighbor().begin(); n != ea.neighbor().end() && !d.found(); ++n) {
            const std::string nat = at + ", neighbor " + n->key.toStrep();
            const auto other = eb->neighbor(n->key);
            if (!other) {
                d.fail(nat, "missing on the right");
            } else {
                compareDescribed(d, nat, *n->value, *other);
            }
        }
        d.check(at, "prefixes", ea.prefix().size(), eb->prefix().size());
        for (auto p = ea.prefix().begin(); p != ea.prefix().end() && !d.found(); ++p) {
            std::ostringstream os;
            os << at << ", prefix " << p->key;
            const auto other = eb->prefix(p->key);
            if (!other) {
                d.fail(os.str(), "missing on the right");
            } else {
                compareDescribed(d, os.str(), *p->value, *other);
            }
        }
    }
    return d.text();
}

}  // namespace IgpBench
