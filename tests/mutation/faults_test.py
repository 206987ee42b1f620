"""What faults are planted where."""

import unittest

import faults

# A source, and what it becomes by each of its faults.
CASES = {
    "an operator, and the condition that it is": (
        "void f() { if (a < b) { g(); } }",
        ["void f() { if (a <= b) { g(); } }", "void f() { if (!(a < b)) { g(); } }",
         "void f() { if (a < b) { ; } }"]),
    "a condition of several parts": (
        "bool f() { return x() && !y(); }", ["bool f() { return x() || !y(); }", "bool f() { return x() && y(); }"]),
    "constants": ("int a = 0x10u;", ["int a = 17u;", "int a = 15u;"]),
    "zero has nothing below": ("int a = 0;", ["int a = 1;"]),
    "brackets, pointers and references are no operators": (
        "std::vector<char*> f(const T& a, T&& b) { return {}; }", []),
    "comments, texts and directives": ('#define A 1\n// a == 1\n/* true */ const char* a = "1 == 2";', []),
    "what only prefetches": ("void f() { prefetchLine(a + 1); }", []),
    "a static assertion": ("static_assert(sizeof(A) == 8, \"\");", []),
    "statements, but no declarations": (
        "void f() { T a(b); T c = d; e = a; a.b->c(d); continue; return; }",
        ["void f() { T a(b); T c = d; ; a.b->c(d); continue; return; }", "void f() { T a(b); T c = d; e = a; ; continue; return; }",
         "void f() { T a(b); T c = d; e = a; a.b->c(d); ; return; }"]),
    "members of a type are no statements": ("class A { A(); void f(); };", []),
    "a step": ("void f() { ++a; }", ["void f() { --a; }", "void f() { ; }"]),
    "an operator's name": ("bool operator==(A a);", []),
}


class Faults(unittest.TestCase):
    def test_each_is_planted_where_it_can_be(self):
        for label, (source, want) in CASES.items():
            with self.subTest(label):
                got = [faults.planted(source, fault) for fault in faults.faults_of("a.cpp", source)]
                self.assertCountEqual(got, want)

    def test_the_line_is_that_of_the_fault(self):
        source = "int a;\nvoid f() {\n  ++a;\n}\n"
        fault = faults.faults_of("a.cpp", source)[0]
        self.assertEqual((faults.line_number(source, fault.begin), faults.line_of(source, fault.begin)), (3, "++a;"))


if __name__ == "__main__":
    unittest.main()
