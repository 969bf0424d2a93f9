#pragma once
// Attribute values in their scene-file form. Numbers are JSON numbers (a
// float is written with the fewest digits that read back to the same float;
// infinities and NaN as the strings "inf", "-inf" and "nan"), booleans are
// true and false, enumerations the field's name, strings JSON strings,
// matrices four rows of four numbers, and a compound whose children are
// plain values an array of them in child order.
//
// The library links the JSON parser privately: include this header only from
// code that links it as well (the loader, the writer, the tools, the tests).
#include <string>

#include <nlohmann/json.hpp>

#include "framework/host/attribute.h"

using TsceneJson = nlohmann::ordered_json;

// Whether a value of this type can be written in a file at all: messages,
// addresses, light data and untyped ports carry no value there.
bool isFileValueType(const Tattribute& a);
// Whether the attribute's value belongs in a file: storable, not a computed
// output, of a file value type, and for a compound with at least one such child.
bool isSavedAttribute(const Tattribute& a);
// A compound written as an array: every child a saved value without children.
bool compoundAsArray(const Tattribute& a);

// The file form of one value of an attribute without children.
TsceneJson encodeLeafValue(const Tattribute& a, const void* value);
// The file form of a whole value: a leaf as above, a compound as an array
// (see compoundAsArray) or an object of its saved children. Null for a value
// that has no file form.
TsceneJson encodeWholeValue(const Tattribute& a, const void* value);
// Compact one-line text of encodeWholeValue, empty when there is none.
std::string wholeValueText(const Tattribute& a, const void* value);

// Reads the file form of a value of an attribute without children into
// `value` (constructed storage of a.size() bytes). False with the reason when
// the JSON value does not fit the attribute.
bool decodeLeafValue(const Tattribute& a, const TsceneJson& json, void* value, std::string& why);

// The JSON type of a value, for messages ("a string", "an array").
std::string describeJsonType(const TsceneJson& json);
