// The framework's exceptions: contract violations that a caller can handle.
//
// Broken invariants are not exceptions but assertions (Assert.h). Everything
// here derives from Poldo::Exception, itself a std::runtime_error, so an agent
// can catch the whole family in one place.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Poldo {

class Exception : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reading or popping from an empty ordered list.
class EmptyVectorException : public Exception {
public:
    EmptyVectorException();
};

/// Writing an ordered list at an index at or beyond its length.
class VectorOutOfRangeException : public Exception {
public:
    VectorOutOfRangeException(std::size_t index, std::size_t length);
    std::size_t index() const noexcept { return index_; }
    std::size_t length() const noexcept { return length_; }

private:
    std::size_t index_;
    std::size_t length_;
};

}  // namespace Poldo

namespace Kest {

/// A number outside the range its type or container allows. The message is
/// one of the fixed texts below; tests and agents may match it exactly.
class RangeException : public Poldo::Exception {
public:
    explicit RangeException(const std::string& message) : Poldo::Exception(message) {}

    /// "cannot access index <index> of an array with size <size>"
    static RangeException arrayIndex(long long index, std::size_t size);
    /// "<T>::value < <T>::min or > <T>::max not allowed" for the fully qualified type name T.
    static RangeException boundedValue(const char* typeName);
    /// "<T>::value < <T>::min or > <T>::<maxName> not allowed".
    static RangeException boundedValue(const char* typeName, const char* maxName);
};

/// Text that does not read as a value of the requested type.
class ParseException : public Poldo::Exception {
public:
    explicit ParseException(const std::string& message) : Poldo::Exception(message) {}
};

/// A nested attribute of a value failed to read with a range error. The message
/// names the attribute so that a user sees which part of a long text was wrong:
///   "attribute 'prefix': <the range error's message>"
class AttributeParseException : public ParseException {
public:
    AttributeParseException(const std::string& attribute, const std::string& cause);
    const std::string& attribute() const noexcept { return attribute_; }
    const std::string& cause() const noexcept { return cause_; }

private:
    std::string attribute_;
    std::string cause_;
};

/// A null pointer given to a mutator that needs an object. Names the entity
/// type and the attribute, e.g. "null pointer given to Routing::IgpCommon::IgpLspDatabase::lsp (131)".
class MutatorNullPointerException : public Poldo::Exception {
public:
    MutatorNullPointerException(const char* typeName, const char* attribute, std::uint16_t attrId);
    const char* typeName() const noexcept { return typeName_; }
    const char* attribute() const noexcept { return attribute_; }
    std::uint16_t attrId() const noexcept { return attrId_; }

private:
    const char* typeName_;
    const char* attribute_;
    std::uint16_t attrId_;
};

}  // namespace Kest
