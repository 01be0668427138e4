#include "IgpCommon/NodeAttrCollections.h"

#include <algorithm>
#include <vector>

#include "Define.h"
#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

// ---- IgpMsd -------------------------------------------------------------------

IgpMsd::IgpMsd(Kest::CharRange& r) : IgpMsd(Kest::readValue<IgpMsd>(r)) {}

std::uint32_t IgpMsd::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(msdType_).mix8(msdValue_).result();
}

std::ostream& operator<<(std::ostream& os, const IgpMsd& m) {
    return Kest::writeValue(os, m);
}

IGP_DEFINE_TYPE_DATA(IgpMsd, IgpMsd::kestTypeName, value, {"msdType", 2, AttrKind::scalar},
                     {"msdValue", 3, AttrKind::scalar})

// ---- IgpFlexAlgoDefinitionCol --------------------------------------------------

Poldo::Ptr<IgpFlexAlgoDefinitionCol> IgpFlexAlgoDefinitionCol::IgpFlexAlgoDefinitionColIs() {
    return Poldo::Ptr<IgpFlexAlgoDefinitionCol>(new IgpFlexAlgoDefinitionCol(), Poldo::adopt);
}
Poldo::Ptr<IgpFlexAlgoDefinitionCol> igpFlexAlgoDefinitionColFactory() {
    return IgpFlexAlgoDefinitionCol::IgpFlexAlgoDefinitionColIs();
}

IgpFlexAlgoDefinition IgpFlexAlgoDefinitionCol::fad(std::uint8_t algo) const {
    const IgpFlexAlgoDefinition* d = fad_.find(algo);
    return d ? *d : IgpFlexAlgoDefinition();
}

void IgpFlexAlgoDefinitionCol::fadIs(std::uint8_t algo, const IgpFlexAlgoDefinition& def) {
    if (IgpFlexAlgoDefinition* stored = fad_.findMutable(algo)) {
        if (IgpFlexAlgoDefinition::isEq(*stored, def)) {
            return;
        }
        const IgpFlexAlgoDefinition old = std::exchange(*stored, def);
        publishMember(Attr::fad, algo, &old);
        return;
    }
    fad_.insert(algo, def);
    if (!publisher().initialState()) {
        const IgpFlexAlgoDefinition old;
        publishMember(Attr::fad, algo, &old);
    }
}

void IgpFlexAlgoDefinitionCol::fadDel(std::uint8_t algo) {
    const IgpFlexAlgoDefinition* stored = fad_.find(algo);
    if (stored == nullptr) {
        return;
    }
    const IgpFlexAlgoDefinition old = *stored;
    fad_.erase(algo);
    publishMember(Attr::fad, algo, &old);
}

void IgpFlexAlgoDefinitionCol::fadDelAll() {
    if (publisher().initialState()) {
        fad_.clear();
        return;
    }
    for (auto it = fad_.begin(); it != fad_.end(); ++it) {
        fadDel(it->first);
    }
}

namespace {

bool sameWords(const Poldo::Ptr<IgpFlexAlgoEag>& mine, const Poldo::Ptr<IgpFlexAlgoEag>& theirs) {
    return mine ? mine->compare(theirs.get()) : !theirs;
}

bool sameSrlgs(const Poldo::Ptr<IgpFlexAlgoSrlg>& mine, const Poldo::Ptr<IgpFlexAlgoSrlg>& theirs) {
    return mine ? mine->compare(theirs.get()) : !theirs;
}

}  // namespace

bool IgpFlexAlgoDefinitionCol::compareFadCol(const IgpFlexAlgoDefinitionCol* other) const {
    if (fad_.size() != other->fad_.size()) {
        return false;
    }
    // The walk resumes after the last algorithm visited should the collection
    // change under it.
    for (auto it = fad_.begin(); it != fad_.end(); ++it) {
        const IgpFlexAlgoDefinition& d = it->second;
        const IgpFlexAlgoDefinition o = other->fad(it->first);
        if (d.flexAlgo() != o.flexAlgo() || d.metricType() != o.metricType() ||
            d.calcType() != o.calcType() || d.priority() != o.priority()) {
            return false;
        }
        if (!sameWords(d.excludeAny(), o.excludeAny()) || !sameWords(d.includeAny(), o.includeAny()) ||
            !sameWords(d.includeAll(), o.includeAll()) || !sameSrlgs(d.excludeSrlg(), o.excludeSrlg())) {
            return false;
        }
    }
    return true;
}

IGP_DEFINE_ENTITY(IgpFlexAlgoDefinitionCol, {"fad", Attr::fad, AttrKind::orderedCollection},
                  {"compareFadCol", Attr::fad + 1, AttrKind::function})

// ---- IgpMsdCol -------------------------------------------------------------------

Poldo::Ptr<IgpMsdCol> IgpMsdCol::IgpMsdColIs() {
    return Poldo::Ptr<IgpMsdCol>(new IgpMsdCol(), Poldo::adopt);
}
Poldo::Ptr<IgpMsdCol> igpMsdColFactory() {
    return IgpMsdCol::IgpMsdColIs();
}

void IgpMsdCol::msdIs(std::uint32_t position, IgpMsd v) {
    const bool withinBound = position < upperBound_;
    const IgpMsd old = msd_.get(position);
    if (withinBound && old == v) {
        return;
    }
    msd_.at(position) = v;
    if (!withinBound) {
        upperBound_ = position + 1;
    }
    publishMember(Attr::msd, position, withinBound ? &old : nullptr);
}

IgpMsd IgpMsdCol::msdDel(std::uint32_t position) {
    const IgpMsd old = msd_.get(position);
    if (!(old == IgpMsd())) {
        msd_.at(position) = IgpMsd();
        publishMember(Attr::msd, position, &old);
    }
    return old;
}

void IgpMsdCol::msdDelAll() {
    for (std::uint32_t p = lowerBound_; p < upperBound_; ++p) {
        msdDel(p);
    }
}

bool IgpMsdCol::compareMsdCol(const IgpMsdCol* other) const {
    const std::uint32_t s = span();
    if (s != other->span()) {
        return false;
    }
    for (std::uint32_t p = 0; p < s; ++p) {
        const IgpMsd mine = p < upperBound_ ? msd_.get(p) : IgpMsd();
        const IgpMsd theirs = p < other->upperBound_ ? other->msd_.get(p) : IgpMsd();
        if (!(mine == theirs)) {
            return false;
        }
    }
    return true;
}

IGP_DEFINE_ENTITY(IgpMsdCol, {"msd", Attr::msd, AttrKind::dynArray},
                  {"compareMsdCol", Attr::msd + 1, AttrKind::function})

// ---- IgpMultiTopologyIdCol -------------------------------------------------------

Poldo::Ptr<IgpMultiTopologyIdCol> IgpMultiTopologyIdCol::IgpMultiTopologyIdColIs() {
    return Poldo::Ptr<IgpMultiTopologyIdCol>(new IgpMultiTopologyIdCol(), Poldo::adopt);
}
Poldo::Ptr<IgpMultiTopologyIdCol> igpMultiTopologyIdColFactory() {
    return IgpMultiTopologyIdCol::IgpMultiTopologyIdColIs();
}

void IgpMultiTopologyIdCol::mtIdValueIs(IgpMultiTopologyId id) {
    memberInsert(Attr::mtIdValue, mtIdValue_, id);
}

void IgpMultiTopologyIdCol::mtIdValueDel(IgpMultiTopologyId id) {
    memberErase(Attr::mtIdValue, mtIdValue_, id);
}

void IgpMultiTopologyIdCol::mtIdValueDelAll() {
    membersClear(Attr::mtIdValue, mtIdValue_);
}

bool IgpMultiTopologyIdCol::compareMtIdCol(const IgpMultiTopologyIdCol* other) const noexcept {
    if (other == nullptr || mtIdValue_.size() != other->mtIdValue_.size()) {
        return false;
    }
    for (auto it = mtIdValue_.uncheckedBegin(); it != mtIdValue_.uncheckedEnd(); ++it) {
        if (!other->mtIdValue_.contains(*it)) {
            return false;
        }
    }
    return true;
}

Poldo::String IgpMultiTopologyIdCol::toStrep() const {
    std::vector<std::uint16_t> ids;
    ids.reserve(mtIdValue_.size());
    for (auto it = mtIdValue_.uncheckedBegin(); it != mtIdValue_.uncheckedEnd(); ++it) {
        ids.push_back(it->value());
    }
    std::sort(ids.begin(), ids.end());
    Poldo::OStringStream os;
    os << '[';
    for (std::size_t i = 0; i < ids.size(); ++i) {
        os << (i ? ", " : "") << ids[i];
    }
    os << ']';
    return os.str();
}

IGP_DEFINE_ENTITY(IgpMultiTopologyIdCol,
                  {"mtIdValue", Attr::mtIdValue, AttrKind::hashCollection, MtIdSet::salt},
                  {"compareMtIdCol", Attr::mtIdValue + 1, AttrKind::function},
                  {"toStrep", Attr::mtIdValue + 2, AttrKind::function})

// ---- IsisAreaIdCol ---------------------------------------------------------------

// The text order without the text. The text is the first byte's two
// lower-case hex digits, then a dot before each further pair of bytes (the
// last may be a lone byte), and "none" for an empty area. Two texts have
// their dots at the same places up to the first byte that differs, so they
// first differ at its digits, whose order is the bytes' ('0'-'9' precede
// 'a'-'f'); one area's bytes prefix the other's exactly when its text
// prefixes the other's. And "none" follows every text of hex digits.
bool AreaIdTextLess::operator()(const Isis::AreaId& a, const Isis::AreaId& b) const noexcept {
    if (a.isEmpty() || b.isEmpty()) {
        return !a.isEmpty();
    }
    const auto x = a.bytes();
    const auto y = b.bytes();
    return std::lexicographical_compare(x.begin(), x.end(), y.begin(), y.end());
}

Poldo::Ptr<IsisAreaIdCol> IsisAreaIdCol::IsisAreaIdColIs() {
    return Poldo::Ptr<IsisAreaIdCol>(new IsisAreaIdCol(), Poldo::adopt);
}
Poldo::Ptr<IsisAreaIdCol> isisAreaIdColFactory() {
    return IsisAreaIdCol::IsisAreaIdColIs();
}

bool IsisAreaIdCol::areaId(const Isis::AreaId& area) const {
    const bool* flag = areaId_.find(area);
    return flag != nullptr && *flag;
}

void IsisAreaIdCol::areaIdIs(const Isis::AreaId& area, bool flag) {
    areaId_.assign(area, flag);
}

void IsisAreaIdCol::areaIdDel(const Isis::AreaId& area) {
    areaId_.erase(area);
}

bool IsisAreaIdCol::compareAreaIds(const IsisAreaIdCol* other) const {
    if (areaId_.size() != other->areaId_.size()) {
        return false;
    }
    for (auto a = areaId_.begin(), b = other->areaId_.begin(); a != areaId_.end(); ++a, ++b) {
        if (!Isis::AreaId::isEq(a->first, b->first)) {
            return false;
        }
    }
    return true;
}

IGP_DEFINE_ENTITY(IsisAreaIdCol, {"areaId", 130, AttrKind::orderedCollection},
                  {"compareAreaIds", 131, AttrKind::function})

// ---- IgpFlexAlgoPrefixMetric -------------------------------------------------------

Poldo::Ptr<IgpFlexAlgoPrefixMetric> IgpFlexAlgoPrefixMetric::IgpFlexAlgoPrefixMetricIs() {
    return Poldo::Ptr<IgpFlexAlgoPrefixMetric>(new IgpFlexAlgoPrefixMetric(), Poldo::adopt);
}
Poldo::Ptr<IgpFlexAlgoPrefixMetric> igpFlexAlgoPrefixMetricFactory() {
    return IgpFlexAlgoPrefixMetric::IgpFlexAlgoPrefixMetricIs();
}

std::uint32_t IgpFlexAlgoPrefixMetric::metric(std::uint8_t algo) const {
    const std::uint32_t* m = metric_.find(algo);
    return m ? *m : 0;
}

IGP_DEFINE_ENTITY(IgpFlexAlgoPrefixMetric, {"metric", 130, AttrKind::orderedCollection})

}  // namespace Routing::IgpCommon
