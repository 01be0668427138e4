#include "IgpCommon/framework/Exceptions.h"

namespace Poldo {

EmptyVectorException::EmptyVectorException() : Exception("vector is empty") {}

VectorOutOfRangeException::VectorOutOfRangeException(std::size_t index, std::size_t length)
    : Exception("vector index " + std::to_string(index) + " out of range for length " +
                std::to_string(length)),
      index_(index),
      length_(length) {}

}  // namespace Poldo

namespace Kest {

RangeException RangeException::arrayIndex(long long index, std::size_t size) {
    return RangeException("cannot access index " + std::to_string(index) + " of an array with size " +
                          std::to_string(size));
}

RangeException RangeException::boundedValue(const char* typeName) {
    return boundedValue(typeName, "max");
}

RangeException RangeException::boundedValue(const char* typeName, const char* maxName) {
    const std::string t(typeName);
    return RangeException(t + "::value < " + t + "::min or > " + t + "::" + maxName + " not allowed");
}

AttributeParseException::AttributeParseException(const std::string& attribute, const std::string& cause)
    : ParseException("attribute '" + attribute + "': " + cause), attribute_(attribute), cause_(cause) {}

MutatorNullPointerException::MutatorNullPointerException(const char* typeName, const char* attribute,
                                                         std::uint16_t attrId)
    : Poldo::Exception(std::string("null pointer given to ") + typeName + "::" + attribute + " (" +
                       std::to_string(attrId) + ")"),
      typeName_(typeName),
      attribute_(attribute),
      attrId_(attrId) {}

}  // namespace Kest
