#include "Experiments/ResultValues.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

std::string flattened(const std::string& result)
{
    Run run;
    run.result = result;
    std::string text;
    for (const ResultValue& value : resultValues(run))
        text += value.key + (value.number() ? "=" : "~") + value.text() + " ";
    return text;
}

TEST(ResultValues, FlattenAResultInItsOwnOrder)
{
    const struct {
        std::string result;
        std::string values;
    } cases[] = {
        {R"({"z": 1, "a": 0.25, "flag": true, "none": null, "name": "x y"})", "z=1 a=0.25 flag~true name~x y "},
        {R"({"eval": {"loss": 1, "deep": {"er": 2}, "empty": {}}, "top": 3})", "eval.loss=1 eval.deep.er=2 top=3 "},
        {R"({"list": [1, {"a": [2]}, [null]], "next": 4})", R"(list~[1,{"a":[2]},[null]] next=4 )"},
        {R"({"a": {"b": [], "c": 1}, "a": {"c": 2}})", "a.b~[] a.c=2 "},
        {R"({"big": 1e300, "whole": -0.0, "exact": 0.1, "large": 9007199254740991})",
         "big=1e+300 whole=0 exact=0.1 large=9007199254740991 "},
        {R"({"a.b": 1, "a": {"b": 2}, "c": {"d": 3}, "c.d": 4})", "a.b=1 a/b=2 c/d=3 c.d=4 "},
        {R"({"x": -1e400, "t": "9\"1e999", "y": 1})", R"(x~-1e400 t~9"1e999 y=1 )"},
        {"[1, 2]", "result~[1,2] "},
        {"5", "result=5 "},
        {"no JSON", "result~no JSON "},
        {"{}", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(flattened(c.result), c.values) << c.result;
}

} // namespace
} // namespace veltry
