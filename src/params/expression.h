// Parameter expressions: the formula form of a row's text, evaluated once per row in
// double, plus `ref()` substitution between rows and the vocabulary both forms share
// (rand, noise, remap, remaps). Per-point formulas live in PointExpression.
#pragma once

#include <string>
#include <vector>

class Parameter;

// Value of `text` as a formula at `frame`. A text that does not compile answers 0 with
// `ok` false and prints nothing.
double evaluateExpression(const Parameter& parameter, const std::string& text, float frame, int substep,
                          bool* ok = nullptr);
// `text` with every "ref(name.key)" replaced by that row's resolved text.
std::string resolveRefs(const Parameter& parameter, const std::string& text, float frame, int substep);
// The nodes named by ref() in the row's text.
std::vector<std::string> referencedNodes(const Parameter& parameter);
// Rewrites user spellings the compiler does not take ("!(", "&&", "||"); the point form
// also turns ".x/.y/.z/.r/.g/.b" into "[0]/[1]/[2]".
std::string prepareFormula(const std::string& text, bool pointForm);
// The run's current whole frame, as a float.
float currentFrame();

// The shared vocabulary, in both precisions.
double formulaNoise(double x);
double formulaRemap(double x, double a, double b, double c, double d);
double formulaRemaps(double x, double a, double b, double c, double d);
double formulaRand(double x);
