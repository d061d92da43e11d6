#include "corv/analysis/band_maths.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stack>
#include <stdexcept>

namespace corv {

op_node::op_node(float number) : is_leaf(1), value(1, 1) {
  value(0, 0) = number;
}

op_node::op_node(matrix plane) : is_leaf(1), value(std::move(plane)) {}

op_node::op_node(unsigned code) : operation_code(code) {}

// Trees are taken apart and evaluated with stacks of their own rather than by
// recursion, so that a formula of any length cannot exhaust the call stack.
op_node::~op_node() {
  std::vector<std::unique_ptr<op_node>> detached;
  detached.push_back(std::move(right));
  detached.push_back(std::move(left));
  while (!detached.empty()) {
    std::unique_ptr<op_node> node = std::move(detached.back());
    detached.pop_back();
    if (node) {
      detached.push_back(std::move(node->right));
      detached.push_back(std::move(node->left));
    }
  }
}

namespace {

matrix apply(unsigned operation_code, matrix l, matrix r) {
  if (l.n_elem != 1 && r.n_elem == 1) {
    r = matrix(l.n_rows, l.n_cols).fill(r(0, 0));
  } else if (l.n_elem == 1 && r.n_elem != 1) {
    l = matrix(r.n_rows, r.n_cols).fill(l(0, 0));
  }
  switch (operation_code) {
    case op_node::multiply:
      return l % r;
    case op_node::divide:
      return l / r;
    case op_node::add:
      return l + r;
    case op_node::subtract:
      return l - r;
    case op_node::less:
      return arma::conv_to<matrix>::from(l < r);
    case op_node::greater:
      return arma::conv_to<matrix>::from(l > r);
    case op_node::power: {
      const float exponent = r(0);  // only the first element of R is the exponent
      return l.transform([exponent](float x) { return std::pow(x, exponent); });
    }
    default:
      throw std::runtime_error("op_node result: Requested operation does not exist.");
  }
}

}  // namespace

matrix op_node::result() const {
  struct step {
    const op_node* node;
    bool operands_done;
  };
  std::vector<step> steps = {{this, false}};
  std::vector<matrix> values;
  while (!steps.empty()) {
    const step current = steps.back();
    steps.pop_back();
    if (current.node->is_leaf) {
      values.push_back(current.node->value);
    } else if (!current.operands_done) {
      steps.push_back({current.node, true});
      steps.push_back({current.node->right.get(), false});
      steps.push_back({current.node->left.get(), false});  // left first, as written
    } else {
      matrix r = std::move(values.back());
      values.pop_back();
      matrix l = std::move(values.back());
      values.pop_back();
      values.push_back(apply(current.node->operation_code, std::move(l), std::move(r)));
    }
  }
  return values.back();
}

bool is_operator(const std::string& token) {
  return token == "*" || token == "/" || token == "+" || token == "-" || token == "^" ||
         token == "<" || token == ">";
}

int op_priority(const std::string& token) {
  if (token == "(") {
    return -2;
  }
  if (token == "<" || token == ">") {
    return 1;
  }
  if (token == "+" || token == "-") {
    return 2;
  }
  if (token == "*" || token == "/") {
    return 3;
  }
  if (token == "^") {
    return 4;
  }
  throw std::runtime_error("op_priority: Operator does not exist.");
}

std::vector<std::string> band_maths_tokens(const std::string& formula) {
  std::string spaced;
  for (const char c : formula) {
    if (c == '(' || c == ')' || is_operator(std::string(1, c))) {
      spaced += ' ';
      spaced += c;
      spaced += ' ';
    } else {
      spaced += c;
    }
  }
  // Reading word by word splits at any run of whitespace (a regular expression
  // would recurse once per character of a long run, and exhaust the stack).
  std::istringstream words(spaced);
  std::vector<std::string> tokens;
  std::string token;
  while (words >> token) {
    tokens.push_back(token);
  }
  return tokens;
}

std::vector<std::string> Parse(const std::vector<std::string>& tokens) {
  std::vector<std::string> output;
  std::stack<std::string> operators;
  bool negate = false;
  std::string previous;
  for (const auto& token : tokens) {
    if (token != "(" && token != ")" && !is_operator(token)) {
      output.push_back(negate ? "-" + token : token);
      negate = false;
    } else if (token == "(") {
      operators.push(token);
    } else if (token == ")") {
      while (!operators.empty() && operators.top() != "(") {
        output.push_back(operators.top());
        operators.pop();
      }
      if (operators.empty()) {
        throw std::runtime_error("Parse: Mismatched parenthesis!");
      }
      operators.pop();
      // The language pops one more operator after a closing parenthesis.
      if (!operators.empty() && op_priority(operators.top()) > 0) {
        output.push_back(operators.top());
        operators.pop();
      }
    } else if (token == "-" && (previous.empty() || is_operator(previous) || previous == "(")) {
      negate = true;
    } else if (is_operator(token)) {
      while (!operators.empty() && op_priority(operators.top()) >= op_priority(token)) {
        output.push_back(operators.top());
        operators.pop();
      }
      operators.push(token);
    } else {
      throw std::runtime_error("Parse: Un-parseable token!");
    }
    previous = token;
  }
  while (!operators.empty()) {
    if (operators.top() == "(" || operators.top() == ")") {
      throw std::runtime_error("Parse: Mismatched parenthesis!");
    }
    output.push_back(operators.top());
    operators.pop();
  }
  return output;
}

std::pair<int, int> band_maths_operand(const std::string& operand) {
  const auto open = operand.find('[');
  const auto close = operand.find(']');
  const int image = std::atoi(operand.substr(1, open == std::string::npos ? 0 : open - 1).c_str());
  const int band =
      open == std::string::npos
          ? 0
          : std::atoi(operand
                          .substr(open + 1,
                                  close == std::string::npos ? std::string::npos : close - open - 1)
                          .c_str());
  return {image, band};
}

namespace {

unsigned operation_of(const std::string& token) {
  if (token == "*") {
    return op_node::multiply;
  }
  if (token == "/") {
    return op_node::divide;
  }
  if (token == "+") {
    return op_node::add;
  }
  if (token == "-") {
    return op_node::subtract;
  }
  if (token == "<") {
    return op_node::less;
  }
  if (token == ">") {
    return op_node::greater;
  }
  return op_node::power;
}

std::unique_ptr<op_node> image_leaf(const image_list& images, const std::string& token) {
  const bool negative = token[0] == '-';
  const auto [image, band] = band_maths_operand(negative ? token.substr(1) : token);
  if (image < 1) {
    throw std::runtime_error("band_maths: Invalid image, first image is I1.");
  }
  const int count = static_cast<int>(images.size());
  if (image > count) {
    throw std::runtime_error("band_maths: Invalid image " + std::to_string(image) +
                             ", there are only " + std::to_string(count));
  }
  if (band < 0) {
    throw std::runtime_error("band_maths: Invalid band " + std::to_string(band) +
                             ", first band is 0");
  }
  const cube& data = images[image - 1];
  if (band > static_cast<int>(data.n_slices) - 1) {
    // The message reports the band count of the image after image x, as it always has.
    if (image >= count) {
      throw std::out_of_range("invalid vector<T> subscript");
    }
    throw std::runtime_error("band_maths: Invalid band " + std::to_string(band) +
                             ", image only has " + std::to_string(images[image].get().n_slices) +
                             " bands.");
  }
  return std::make_unique<op_node>(matrix(data.slice(band) * (negative ? -1.0f : 1.0f)));
}

}  // namespace

matrix band_maths(const image_list& images, std::string formula) {
  std::vector<std::unique_ptr<op_node>> nodes;
  for (const auto& token : Parse(band_maths_tokens(formula))) {
    if (is_operator(token)) {
      if (nodes.size() < 2) {
        throw std::runtime_error("band_maths: Not enough operands!");
      }
      auto node = std::make_unique<op_node>(operation_of(token));
      node->right = std::move(nodes.back());
      nodes.pop_back();
      node->left = std::move(nodes.back());
      nodes.pop_back();
      nodes.push_back(std::move(node));
    } else if (token[0] == 'I' || (token.size() > 1 && token[0] == '-' && token[1] == 'I')) {
      nodes.push_back(image_leaf(images, token));
    } else {
      nodes.push_back(std::make_unique<op_node>(static_cast<float>(std::atof(token.c_str()))));
    }
  }
  if (nodes.size() != 1) {
    throw std::runtime_error("band_maths: Invalid formula!");
  }
  return nodes.front()->result();
}

}  // namespace corv
