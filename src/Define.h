// Definitions shared by the library's sources: the reflected type record and
// the allocation tracker that every type declares in its header.
#pragma once

#include "IgpCommon/framework/AttrDesc.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"

/// Defines `Type::typeData()`: the type's name, kind and attributes in declaration order.
#define IGP_DEFINE_TYPE_DATA(Type, typeName, kind, ...)                               \
    const ::Kest::TypeData& Type::typeData() noexcept {                               \
        static constexpr ::Kest::AttrData attrs[] = {__VA_ARGS__};                    \
        static constexpr ::Kest::TypeData t{typeName, ::Kest::TypeKind::kind, attrs}; \
        return t;                                                                     \
    }

/// Defines `Type::allocTracker()`: the type's allocation tracker, registered on first use.
#define IGP_DEFINE_ALLOC_TRACKER(Type, typeName)  \
    ::Drimm::AllocTracker& Type::allocTracker() { \
        static ::Drimm::AllocTracker t(typeName); \
        return t;                                 \
    }

/// Both, for an entity named Routing::IgpCommon::<Type>.
#define IGP_DEFINE_ENTITY(Type, ...)                                              \
    IGP_DEFINE_TYPE_DATA(Type, "Routing::IgpCommon::" #Type, entity, __VA_ARGS__) \
    IGP_DEFINE_ALLOC_TRACKER(Type, "Routing::IgpCommon::" #Type)

/// Both, for an entity whose attributes are described by kestAttrDescs().
#define IGP_DEFINE_DESCRIBED_ENTITY(Type)                                                                   \
    const ::Kest::TypeData& Type::typeData() noexcept {                                                     \
        static constexpr auto attrs = ::Kest::attrDataOf<Type>();                                           \
        static constexpr ::Kest::TypeData t{"Routing::IgpCommon::" #Type, ::Kest::TypeKind::entity, attrs}; \
        return t;                                                                                           \
    }                                                                                                       \
    IGP_DEFINE_ALLOC_TRACKER(Type, "Routing::IgpCommon::" #Type)
