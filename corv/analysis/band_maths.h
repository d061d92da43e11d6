#ifndef CORV_ANALYSIS_BAND_MATHS_H
#define CORV_ANALYSIS_BAND_MATHS_H

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "corv/io/types.h"

namespace corv {

// One node of a band maths expression tree: a value leaf (a number as a 1 x 1
// matrix, or a band plane) or a two-operand operation that owns its children.
class op_node {
 public:
  // Operation codes.
  enum operation : unsigned {
    multiply = 0,
    divide = 1,
    add = 2,
    subtract = 3,
    less = 4,
    greater = 5,
    power = 6
  };

  explicit op_node(float number);
  explicit op_node(matrix value);
  explicit op_node(unsigned operation_code);
  virtual ~op_node();

  matrix result() const;

  std::unique_ptr<op_node> left;
  std::unique_ptr<op_node> right;
  int is_leaf = 0;
  matrix value;
  unsigned operation_code = 0;
};

using image_list = std::vector<std::reference_wrapper<const cube>>;

// Evaluates a per-pixel formula over bands of the images (I1 is images[0]), e.g.
// "(I1[40] - I1[20]) / (I1[40] + I1[20])". A formula of numbers only gives 1 x 1.
matrix band_maths(const image_list& images, std::string formula);

// Infix tokens to postfix (shunting yard, with the language's unary minus and
// its extra pop after a closing parenthesis).
std::vector<std::string> Parse(const std::vector<std::string>& tokens);
int op_priority(const std::string& token);
bool is_operator(const std::string& token);
// The image and band numbers of an image operand ("I2[14]" gives 2 and 14), read
// as band_maths reads them: C atoi of the text between "I" and "[" and of the
// text between "[" and "]" (no "[": band 0). Unchecked.
std::pair<int, int> band_maths_operand(const std::string& token);
// The formula split into tokens as band_maths reads it.
std::vector<std::string> band_maths_tokens(const std::string& formula);

}  // namespace corv

#endif
