// `igp-lsdb-schema-check [--lines] SCHEMA FILE`: validates FILE as one JSON document (or one per
// line) against the part of JSON Schema 2020-12 the tool's schema uses. Any other keyword stops
// it with an error rather than pass a document it did not fully check.

#include <fstream>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

class Validator {
public:
    explicit Validator(const Json& root) : root_(root) {}

    /// The reasons `v` does not match `schema`; empty when it does.
    std::vector<std::string> errors(const Json& schema, const Json& v, const std::string& at) const {
        std::vector<std::string> out;
        check(schema, v, at, out);
        return out;
    }

private:
    static bool typeIs(const std::string& type, const Json& v) {
        static const std::map<std::string, bool (Json::*)() const noexcept> is = {
            {"integer", &Json::is_number_integer},
            {"number", &Json::is_number},
            {"string", &Json::is_string},
            {"boolean", &Json::is_boolean},
            {"null", &Json::is_null},
            {"object", &Json::is_object},
            {"array", &Json::is_array}};
        return (v.*is.at(type))();
    }

    const Json& resolve(const std::string& ref) const {
        if (ref.rfind("#/", 0) != 0) {
            throw std::runtime_error("only local references are supported: " + ref);
        }
        return root_.at(Json::json_pointer(ref.substr(1)));
    }

    void check(const Json& schema, const Json& v, const std::string& at,
               std::vector<std::string>& out) const {
        static const std::set<std::string> annotations = {"$schema",     "$id",      "title",
                                                          "description", "$comment", "$defs"};
        const auto fail = [&](const std::string& why) { out.push_back(at + ": " + why); };
        for (const auto& [keyword, s] : schema.items()) {
            if (annotations.contains(keyword)) {
                continue;
            }
            if (keyword == "$ref") {
                check(resolve(s.get<std::string>()), v, at, out);
            } else if (keyword == "type") {
                bool any = false;
                for (const Json& t : s.is_array() ? s : Json::array({s})) {
                    any = any || typeIs(t.get<std::string>(), v);
                }
                if (!any) {
                    fail("is not of type " + s.dump());
                }
            } else if (keyword == "properties") {
                if (v.is_object()) {
                    for (const auto& [name, sub] : s.items()) {
                        if (v.contains(name)) {
                            check(sub, v.at(name), at + "/" + name, out);
                        }
                    }
                }
            } else if (keyword == "required") {
                for (const Json& name : s) {
                    if (v.is_object() && !v.contains(name.get<std::string>())) {
                        fail("lacks " + name.get<std::string>());
                    }
                }
            } else if (keyword == "additionalProperties") {
                const Json declared = schema.value("properties", Json::object());
                for (const auto& [name, value] : v.items()) {
                    if (!v.is_object() || declared.contains(name) || s == true) {
                        continue;
                    } else if (s == false) {
                        fail("has undeclared " + name);
                    } else {
                        check(s, value, at + "/" + name, out);
                    }
                }
            } else if (keyword == "items") {
                if (v.is_array()) {
                    for (std::size_t i = 0; i < v.size(); ++i) {
                        check(s, v.at(i), at + "/" + std::to_string(i), out);
                    }
                }
            } else if (keyword == "minItems" || keyword == "maxItems") {
                const bool min = keyword == "minItems";
                if (v.is_array() &&
                    (min ? v.size() < s.get<std::size_t>() : v.size() > s.get<std::size_t>())) {
                    fail("has " + std::to_string(v.size()) + " items, " + keyword + " " + s.dump());
                }
            } else if (keyword == "enum") {
                if (std::find(s.begin(), s.end(), v) == s.end()) {
                    fail(v.dump() + " is not one of " + s.dump());
                }
            } else if (keyword == "const") {
                if (v != s) {
                    fail(v.dump() + " is not " + s.dump());
                }
            } else if (keyword == "minimum" || keyword == "maximum") {
                const bool min = keyword == "minimum";
                if (v.is_number() &&
                    (min ? v.get<double>() < s.get<double>() : v.get<double>() > s.get<double>())) {
                    fail(v.dump() + " is beyond " + keyword + " " + s.dump());
                }
            } else if (keyword == "pattern") {
                if (v.is_string() &&
                    !std::regex_search(v.get<std::string>(), std::regex(s.get<std::string>()))) {
                    fail(v.dump() + " does not match " + s.get<std::string>());
                }
            } else if (keyword == "oneOf") {
                std::size_t matches = 0;
                for (const Json& sub : s) {
                    matches += errors(sub, v, at).empty() ? 1 : 0;
                }
                if (matches != 1) {
                    fail("matches " + std::to_string(matches) + " of the oneOf schemas, not exactly one");
                }
            } else {
                throw std::runtime_error("keyword not supported by this checker: " + keyword);
            }
        }
    }

    const Json& root_;
};

}  // namespace

int main(int argc, char** argv) {
    const bool lines = argc == 4 && std::string(argv[1]) == "--lines";
    if (argc != (lines ? 4 : 3)) {
        std::cerr << "usage: igp-lsdb-schema-check [--lines] SCHEMA FILE\n";
        return 2;
    }
    try {
        std::ifstream schemaFile(argv[lines ? 2 : 1]);
        const Json schema = Json::parse(schemaFile);
        std::ifstream in(argv[lines ? 3 : 2]);
        std::vector<Json> docs;
        if (lines) {
            for (std::string line; std::getline(in, line);) {
                docs.push_back(Json::parse(line));
            }
        } else {
            docs.push_back(Json::parse(in));
        }
        const Validator validator(schema);
        std::size_t bad = 0;
        for (std::size_t i = 0; i < docs.size(); ++i) {
            for (const std::string& e :
                 validator.errors(schema, docs[i], "document " + std::to_string(i + 1))) {
                std::cerr << e << '\n';
                ++bad;
            }
        }
        std::cout << docs.size() << " documents, " << bad << " errors\n";
        return bad == 0 && !docs.empty() ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << "igp-lsdb-schema-check: " << e.what() << '\n';
        return 2;
    }
}
