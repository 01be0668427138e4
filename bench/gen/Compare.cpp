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

// Nodes, neighbors and prefixes compare attribute by attribute through their descriptions.
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
            compareDescribed(d, at, *ea.node(), *eb->node());
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
