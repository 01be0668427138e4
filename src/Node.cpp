#include "IgpCommon/Node.h"

#include <algorithm>
#include <vector>

#include "Define.h"
#include "IgpCommon/framework/Assert.h"

namespace Routing::IgpCommon {

Poldo::Ptr<Node> Node::NodeIs(const IgpNodeId& nodeId) {
    return Poldo::Ptr<Node>(new Node(nodeId), Poldo::adopt);
}

Poldo::Ptr<Node> nodeFactory(const IgpNodeId& nodeId) {
    return Node::NodeIs(nodeId);
}

namespace {

// Keeps `mine` when both are set and equal by content, otherwise takes theirs
// through the setter (which publishes).
template <class T, class Same, class Set>
void mergeCollection(const Poldo::Ptr<T>& mine, const Poldo::Ptr<T>& theirs, Same same, Set set) {
    if (mine && theirs && same(*mine, theirs.get())) {
        return;
    }
    set(theirs);
}

void putRanges(std::ostream& os, const SrCapabilities& caps) {
    for (unsigned i = 0; i < caps.numRanges(); ++i) {
        os << "(range=";
        // Past the eighth range the index is refused after "(range=" is out.
        const SrSidRange& r = caps.sidLabelRange(SrSidRangeIndex::checked(i));
        os << r.range() << " base=" << r.startingSid() << ")";
    }
}

void putEag(std::ostream& os, const char* name, const Poldo::Ptr<IgpFlexAlgoEag>& eag) {
    os << ", " << name << '=' << (eag ? eag->toStrep() : Poldo::String("[]"));
}

}  // namespace

void Node::updateNodeAttrs(const Node* arg) {
    if (!(nodeId_ == arg->nodeId_)) {
        Kest::assertFail("nodeId() == arg->nodeId()", "IgpCommon/IgpLsp.h", 246,
                         "void Routing::IgpCommon::Node::updateNodeAttrs(const Routing::IgpCommon::Node*)");
    }
    flagsIs(arg->flags_);
    hostNameIs(arg->hostName_);
    mergeCollection(
        isisAreaIdCol_, arg->isisAreaIdCol_,
        [](const IsisAreaIdCol& a, const IsisAreaIdCol* b) { return a.compareAreaIds(b); },
        [this](const auto& p) { isisAreaIdColIs(p); });
    mergeCollection(
        srCapabilities_, arg->srCapabilities_,
        [](const SrCapabilities& a, const SrCapabilities* b) { return a.compare(b); },
        [this](const auto& p) { srCapabilitiesIs(p); });
    mergeCollection(
        srlb_, arg->srlb_, [](const SrCapabilities& a, const SrCapabilities* b) { return a.compare(b); },
        [this](const auto& p) { srlbIs(p); });
    mergeCollection(
        msdCol_, arg->msdCol_, [](const IgpMsdCol& a, const IgpMsdCol* b) { return a.compareMsdCol(b); },
        [this](const auto& p) { msdColIs(p); });
    mergeCollection(
        fadCol_, arg->fadCol_,
        [](const IgpFlexAlgoDefinitionCol& a, const IgpFlexAlgoDefinitionCol* b) {
            return a.compareFadCol(b);
        },
        [this](const auto& p) { fadColIs(p); });
    mergeCollection(
        mtIdCol_, arg->mtIdCol_,
        [](const IgpMultiTopologyIdCol& a, const IgpMultiTopologyIdCol* b) { return a.compareMtIdCol(b); },
        [this](const auto& p) { mtIdColIs(p); });
    ipv4RouterIdIs(arg->ipv4RouterId_);
    ipv6RouterIdIs(arg->ipv6RouterId_);
}

std::ostream& Node::formatContent(std::ostream& os) const {
    os << "  node=" << nodeId_.toStrep();
    // The two flag words are asymmetric on purpose: only ", attached" carries a separator.
    os << ", flags=<" << (flags_.overloadBit() ? "overload" : "")
       << (flags_.attachedBit() ? ", attached" : "") << ">";
    if (!hostName_.empty()) {
        os << ", hostname=" << hostName_;
    }
    if (isisAreaIdCol_) {
        os << ", areaids=[ ";
        for (const auto& [area, flag] : isisAreaIdCol_->areaId()) {
            os << area << ' ';
        }
        os << "]";
    }
    if (!ipv4RouterId_.isZero()) {
        os << ", v4rtrid=" << ipv4RouterId_;
    }
    if (!ipv6RouterId_.isZero()) {
        os << ", v6rtrid=" << ipv6RouterId_;
    }
    if (srCapabilities_) {
        // The brace of "SR Cap={" is never closed: the dump's readers expect it so.
        const SrCapabilityFlags f = srCapabilities_->srCapFlag();
        os << ", SR Cap={flags=<" << (f.mplsIpv4() ? "V4" : "") << (f.mplsIpv6() ? "V6" : "")
           << ">, numSRGB= " << unsigned{srCapabilities_->numRanges()};
        if (srCapabilities_->numRanges() != 0) {
            os << ", SRGB=[";
            putRanges(os, *srCapabilities_);
            os << "]";
        }
        if (srlb_) {
            os << ", numSRLB=" << unsigned{srlb_->numRanges()} << " SRLB=[";
            putRanges(os, *srlb_);
            os << "]";
        }
    }
    if (msdCol_) {
        os << ", numMsd=" << msdCol_->span() << " MSD=[";
        for (std::uint32_t p = 0; p < msdCol_->span(); ++p) {
            const IgpMsd m = msdCol_->msd(p);
            os << (p ? ", " : "") << "(msdType=" << unsigned{m.msdType()}
               << " msdValue=" << unsigned{m.msdValue()} << ")";
        }
        os << "]";
    }
    if (fadCol_) {
        std::vector<IgpFlexAlgoDefinition> fads;
        fads.reserve(fadCol_->fadCount());
        for (const auto& [algo, def] : fadCol_->fad()) {
            fads.push_back(def);
        }
        std::sort(fads.begin(), fads.end());
        os << ", numFads=" << fads.size() << " flexAlgoDefinitions=[ ";
        // An 8-bit position counter decides the separator, as the dump always had it.
        std::uint8_t position = 0;
        for (const IgpFlexAlgoDefinition& d : fads) {
            os << "( flexAlgo=" << unsigned{d.flexAlgo()} << ", metricType=" << unsigned{d.metricType()}
               << ", calcType=" << unsigned{d.calcType()} << ", priority=" << unsigned{d.priority()};
            putEag(os, "excludeAny", d.excludeAny());
            putEag(os, "includeAny", d.includeAny());
            putEag(os, "includeAll", d.includeAll());
            os << ", excludeSrlg=" << (d.excludeSrlg() ? d.excludeSrlg()->toStrep() : Poldo::String("[]"));
            ++position;
            os << (position != fads.size() ? " ), " : " )");
        }
        os << " ]";
    }
    if (mtIdCol_) {
        os << ", mtIds=" << mtIdCol_->toStrep();
    }
    return os << '\n' << std::flush;
}

void Node::uniteAreas(Node& into, const Node& from) {
    if (const auto& areas = from.isisAreaIdCol_) {
        if (!into.isisAreaIdCol_) {
            into.isisAreaIdColIs(isisAreaIdColFactory());
        }
        for (auto it = areas->areaId().begin(); it != areas->areaId().end(); ++it) {
            into.isisAreaIdCol_->areaIdIs(it->first, it->second);
        }
    }
}

void Node::uniteMtIds(Node& into, const Node& from) {
    if (const auto& mts = from.mtIdCol_) {
        if (!into.mtIdCol_) {
            into.mtIdColIs(igpMultiTopologyIdColFactory());
        }
        for (auto it = mts->mtIdValue().begin(); it != mts->mtIdValue().end(); ++it) {
            into.mtIdCol_->mtIdValueIs(*it);
        }
    }
}

// A definition that several fragments carry is put together: its numbers from
// the first fragment, its constraints by combineSubTlvs. The union gets
// constraint objects of its own, so that the fragments' definitions stay as
// they were received.
void Node::uniteFads(Node& into, const Node& from) {
    const auto& fads = from.fadCol_;
    if (!fads) {
        return;
    }
    if (!into.fadCol_) {
        into.fadColIs(igpFlexAlgoDefinitionColFactory());
    }
    for (auto it = fads->fad().begin(); it != fads->fad().end(); ++it) {
        if (into.fadCol_->fad().find(it->first) != nullptr) {
            into.fadCol_->fad(it->first).combineSubTlvs(it->second);
            continue;
        }
        IgpFlexAlgoDefinition own;
        own.flexAlgoIs(it->second.flexAlgo());
        own.metricTypeIs(it->second.metricType());
        own.calcTypeIs(it->second.calcType());
        own.priorityIs(it->second.priority());
        own.lspFragmentIdIs(it->second.lspFragmentId());
        own.combineSubTlvs(it->second);  // into empty lists: a copy
        into.fadCol_->fadIs(it->first, own);
    }
}

IGP_DEFINE_DESCRIBED_ENTITY(Node)

}  // namespace Routing::IgpCommon
