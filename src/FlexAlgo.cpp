#include "IgpCommon/FlexAlgo.h"

#include "Define.h"

#include <algorithm>

#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

namespace {

template <class Words>
void writeList(std::ostream& os, const Words& words) {
    os << '[';
    bool first = true;
    for (std::uint32_t w : words) {
        os << (first ? "" : ", ");
        Kest::writeUnsigned(os, w);
        first = false;
    }
    os << ']';
}

// "[a, b, ...]" of 32-bit numbers.
std::vector<std::uint32_t> readList(Kest::CharRange& r) {
    std::vector<std::uint32_t> words;
    r.expect("[");
    if (r.consume("]")) {
        return words;
    }
    do {
        words.push_back(static_cast<std::uint32_t>(Kest::readUnsignedBits(r, 32)));
    } while (r.consume(", "));
    r.expect("]");
    return words;
}

std::vector<std::uint32_t> sortedValues(const IgpFlexAlgoSrlg::ValueSet& set) {
    std::vector<std::uint32_t> v;
    v.reserve(set.size());
    for (auto it = set.uncheckedBegin(); it != set.uncheckedEnd(); ++it) {
        v.push_back(*it);
    }
    std::sort(v.begin(), v.end());
    return v;
}

}  // namespace

// ---- IgpFlexAlgoEag ---------------------------------------------------------

Poldo::Ptr<IgpFlexAlgoEag> IgpFlexAlgoEag::IgpFlexAlgoEagIs() {
    return Poldo::Ptr<IgpFlexAlgoEag>(new IgpFlexAlgoEag(), Poldo::adopt);
}
Poldo::Ptr<IgpFlexAlgoEag> igpFlexAlgoEagFactory() {
    return IgpFlexAlgoEag::IgpFlexAlgoEagIs();
}

std::uint32_t IgpFlexAlgoEag::value(std::uint32_t index) const {
    if (index >= value_.size()) {
        throw Poldo::VectorOutOfRangeException(index, value_.size());
    }
    return value_[index];
}

void IgpFlexAlgoEag::valuePush(std::uint32_t word) {
    value_.push_back(word);
    const std::uint32_t index = valueCount() - 1;
    publishMember<std::uint32_t, std::uint32_t>(Attr::value, index, nullptr);
}

std::uint32_t IgpFlexAlgoEag::valuePop() {
    if (value_.empty()) {
        throw Poldo::EmptyVectorException();
    }
    const std::uint32_t old = value_.back();
    value_.pop_back();
    const std::uint32_t index = valueCount();
    publishMember(Attr::value, index, &old);
    return old;
}

void IgpFlexAlgoEag::valuePopAll() {
    while (!value_.empty()) {
        valuePop();
    }
}

void IgpFlexAlgoEag::valueIs(std::uint32_t index, std::uint32_t word) {
    if (index >= value_.size()) {
        throw Poldo::VectorOutOfRangeException(index, value_.size());
    }
    if (value_[index] == word) {
        return;
    }
    const std::uint32_t old = std::exchange(value_[index], word);
    publishMember(Attr::value, index, &old);
}

bool IgpFlexAlgoEag::compare(const IgpFlexAlgoEag* other) const noexcept {
    return other != nullptr && value_ == other->value_;
}

Poldo::String IgpFlexAlgoEag::toStrep() const {
    Poldo::OStringStream os;
    writeList(os, value_);
    return os.str();
}

IGP_DEFINE_ENTITY(IgpFlexAlgoEag, {"value", Attr::value, AttrKind::list})

// ---- IgpFlexAlgoSrlg --------------------------------------------------------

Poldo::Ptr<IgpFlexAlgoSrlg> IgpFlexAlgoSrlg::IgpFlexAlgoSrlgIs() {
    return Poldo::Ptr<IgpFlexAlgoSrlg>(new IgpFlexAlgoSrlg(), Poldo::adopt);
}
Poldo::Ptr<IgpFlexAlgoSrlg> igpFlexAlgoSrlgFactory() {
    return IgpFlexAlgoSrlg::IgpFlexAlgoSrlgIs();
}

void IgpFlexAlgoSrlg::valueIs(std::uint32_t srlg) {
    memberInsert(Attr::value, value_, srlg);
}

void IgpFlexAlgoSrlg::valueDel(std::uint32_t srlg) {
    memberErase(Attr::value, value_, srlg);
}

void IgpFlexAlgoSrlg::valueDelAll() {
    membersClear(Attr::value, value_);
}

bool IgpFlexAlgoSrlg::compare(const IgpFlexAlgoSrlg* other) const noexcept {
    if (other == nullptr || value_.size() != other->value_.size()) {
        return false;
    }
    for (auto it = value_.uncheckedBegin(); it != value_.uncheckedEnd(); ++it) {
        if (!other->value_.contains(*it)) {
            return false;
        }
    }
    return true;
}

Poldo::String IgpFlexAlgoSrlg::toStrep() const {
    Poldo::OStringStream os;
    writeList(os, sortedValues(value_));
    return os.str();
}

IGP_DEFINE_ENTITY(IgpFlexAlgoSrlg, {"value", Attr::value, AttrKind::hashCollection, ValueSet::salt})

// ---- entity references in text ----------------------------------------------

std::ostream& operator<<(std::ostream& os, const Poldo::Ptr<IgpFlexAlgoEag>& p) {
    if (!p) {
        return os << "None";
    }
    writeList(os, p->values());
    return os;
}

std::ostream& operator<<(std::ostream& os, const Poldo::Ptr<IgpFlexAlgoSrlg>& p) {
    if (!p) {
        return os << "None";
    }
    writeList(os, sortedValues(p->value()));
    return os;
}

Poldo::Ptr<IgpFlexAlgoEag> kestReadText(Kest::CharRange& r, Poldo::Ptr<IgpFlexAlgoEag>*) {
    if (r.consume("None")) {
        return nullptr;
    }
    const std::vector<std::uint32_t> words = readList(r);
    auto eag = igpFlexAlgoEagFactory();
    for (std::uint32_t w : words) {
        eag->valuePush(w);
    }
    return eag;
}

Poldo::Ptr<IgpFlexAlgoSrlg> kestReadText(Kest::CharRange& r, Poldo::Ptr<IgpFlexAlgoSrlg>*) {
    if (r.consume("None")) {
        return nullptr;
    }
    const std::vector<std::uint32_t> values = readList(r);
    auto srlg = igpFlexAlgoSrlgFactory();
    for (std::uint32_t v : values) {
        srlg->valueIs(v);
    }
    return srlg;
}

// ---- IgpFlexAlgoDefinition ----------------------------------------------------

IgpFlexAlgoDefinition::IgpFlexAlgoDefinition()
    : excludeAny_(igpFlexAlgoEagFactory()),
      includeAny_(igpFlexAlgoEagFactory()),
      includeAll_(igpFlexAlgoEagFactory()),
      excludeSrlg_(igpFlexAlgoSrlgFactory()) {}

IgpFlexAlgoDefinition::IgpFlexAlgoDefinition(Kest::CharRange& r)
    : IgpFlexAlgoDefinition(Kest::readValue<IgpFlexAlgoDefinition>(r)) {}

void IgpFlexAlgoDefinition::combineSubTlvs(const IgpFlexAlgoDefinition& other) const {
    const auto combine = [&](IgpFlexAlgoEag& mine, const IgpFlexAlgoEag& theirs) {
        if (mine.valueCount() == 0) {
            for (std::uint32_t w : theirs.values()) {
                mine.valuePush(w);
            }
            return;
        }
        if (other.lspFragmentId_ > lspFragmentId_ || theirs.valueCount() == 0) {
            return;
        }
        mine.valuePopAll();
        // `theirs` may be `mine` itself, now empty: then nothing is appended.
        for (std::uint32_t w : theirs.values()) {
            mine.valuePush(w);
        }
    };
    combine(*excludeAny_, *other.excludeAny_);
    combine(*includeAny_, *other.includeAny_);
    combine(*includeAll_, *other.includeAll_);
    const std::vector<std::uint32_t> srlgs = sortedValues(other.excludeSrlg_->value());
    for (std::uint32_t v : srlgs) {
        excludeSrlg_->valueIs(v);
    }
}

bool IgpFlexAlgoDefinition::isEq(const IgpFlexAlgoDefinition& a, const IgpFlexAlgoDefinition& b) noexcept {
    return &a == &b ||
           (a.flexAlgo_ == b.flexAlgo_ && a.metricType_ == b.metricType_ && a.calcType_ == b.calcType_ &&
            a.priority_ == b.priority_ && a.excludeAny_ == b.excludeAny_ && a.includeAny_ == b.includeAny_ &&
            a.includeAll_ == b.includeAll_ && a.excludeSrlg_ == b.excludeSrlg_ &&
            a.lspFragmentId_ == b.lspFragmentId_);
}

std::strong_ordering operator<=>(const IgpFlexAlgoDefinition& a, const IgpFlexAlgoDefinition& b) noexcept {
    if (&a == &b) {
        return std::strong_ordering::equal;
    }
    const auto addr = [](const auto& p) { return reinterpret_cast<std::uintptr_t>(p.get()); };
    return std::tuple(a.flexAlgo_, a.metricType_, a.calcType_, a.priority_, addr(a.excludeAny_),
                      addr(a.includeAny_), addr(a.includeAll_), addr(a.excludeSrlg_), a.lspFragmentId_) <=>
           std::tuple(b.flexAlgo_, b.metricType_, b.calcType_, b.priority_, addr(b.excludeAny_),
                      addr(b.includeAny_), addr(b.includeAll_), addr(b.excludeSrlg_), b.lspFragmentId_);
}

std::uint32_t IgpFlexAlgoDefinition::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed)
        .mix8(flexAlgo_)
        .mix8(metricType_)
        .mix8(calcType_)
        .mix8(priority_)
        .mixAddress(excludeAny_.get())
        .mixAddress(includeAny_.get())
        .mixAddress(includeAll_.get())
        .mixAddress(excludeSrlg_.get())
        .mix8(lspFragmentId_)
        .result();
}

std::ostream& operator<<(std::ostream& os, const IgpFlexAlgoDefinition& d) {
    return Kest::writeValue(os, d);
}

IGP_DEFINE_TYPE_DATA(IgpFlexAlgoDefinition, IgpFlexAlgoDefinition::kestTypeName, value,
                     {"flexAlgo", 2, AttrKind::scalar}, {"metricType", 3, AttrKind::scalar},
                     {"calcType", 4, AttrKind::scalar}, {"priority", 5, AttrKind::scalar},
                     {"excludeAny", 6, AttrKind::pointer}, {"includeAny", 7, AttrKind::pointer},
                     {"includeAll", 8, AttrKind::pointer}, {"excludeSrlg", 9, AttrKind::pointer},
                     {"lspFragmentId", 10, AttrKind::scalar})

}  // namespace Routing::IgpCommon
