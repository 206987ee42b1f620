// The lexical analysis of SQL: literals, comments, statements and transactions.
#include "sql/SqlText.h"

#include <gmock/gmock.h>

#include "ZaroRuntime/RuntimeError.h"

namespace {

using testing::HasSubstr;
using zaroruntime::copiesThroughClient;
using zaroruntime::isPlainData;
using zaroruntime::scanSql;
using zaroruntime::splitScript;
using zaroruntime::SqlPiece;
using zaroruntime::TransactionVerb;
using zaroruntime::transactionVerb;
using zaroruntime::whyNotOneStatement;

struct OneStatementCase {
  const char* label;
  const char* text;
  const char* why;
};

const OneStatementCase kOneStatementCases[] = {
    {"plain", "SELECT 1", ""},
    {"empty", "", ""},
    {"trailing semicolon and blanks", "SELECT 1 ; \n\t;", ""},
    {"stacked", "SELECT 1; DROP TABLE x", "more than one statement"},
    {"stacked literal", "SELECT 1; 'x'", "more than one statement"},
    {"stacked quoted name", "SELECT 1;\"x\"", "more than one statement"},
    {"semicolon in a literal", "SELECT 'a;b'", ""},
    {"semicolon after a doubled quote", "SELECT 'a'';b'", ""},
    {"literal of two quotes, then stacked", "SELECT ''; SELECT 2", "more than one statement"},
    {"four quotes are one quote", "SELECT '''' ; ", ""},
    {"semicolon in a quoted name", "SELECT 1 AS \"a;b\"", ""},
    {"quote in a quoted name", "SELECT 1 AS \"a'b\"; SELECT 2", "more than one statement"},
    {"backslash does not escape in a plain literal", "SELECT '\\'; SELECT 2", "more than one statement"},
    {"backslash escapes in an E literal", "SELECT E'\\'; x'", ""},
    {"lower-case e as well", "SELECT e'\\'; x'", ""},
    {"an E at the end of a word is no prefix", "SELECT typE'\\'; SELECT 2", "more than one statement"},
    {"escaped quote before a doubled one", "SELECT E'a\\''; DROP TABLE x; --'", "more than one statement"},
    {"dollar literal", "SELECT $$;$$", ""},
    {"tagged dollar literal", "SELECT $a$ ; $$ ; $a$", ""},
    {"another tag does not close it", "SELECT $a$ ; $b$", "a literal does not end"},
    {"parameter numbers are no tags", "SELECT $1; SELECT $1", "more than one statement"},
    {"parameter number before a dollar literal", "SELECT $1$$;$$", ""},
    {"a dollar within a word is no tag", "SELECT a$b$; SELECT 1", "more than one statement"},
    {"nor are two dollars", "SELECT 1 AS a$$; SELECT 2 AS b$$", "more than one statement"},
    {"nor two before a further word", "SELECT 1 AS a$$b$; SELECT 2 AS a$$b$", "more than one statement"},
    {"nor two within a word that a quote follows", "SELECT 1 AS a$$b$, '$b$; SELECT 2'", ""},
    {"nor in a word that follows a number at once", "SELECT 1a$$; SELECT 1a$$", "more than one statement"},
    {"nor in one of other letters", "SELECT 1 AS \xC3\xA4$$; SELECT 2 AS \xC3\xA4$$", "more than one statement"},
    {"dollar literal behind a number", "SELECT 1$$;$$", ""},
    {"dollar literal behind a literal", "SELECT date'2026-11-22'$$;$$", ""},
    {"an E behind a dollar is no prefix", "SELECT a$E'\\'; SELECT 2", "more than one statement"},
    {"an E behind a number is one", "SELECT 1E'\\';'", ""},
    {"an E behind a name in quotes is one", "SELECT \"a\"E'\\';'", ""},
    {"second part of an E literal", "SELECT E'a'\n'\\''; SELECT 2; --'", "more than one statement"},
    {"its quote may be escaped", "SELECT E'a'\n'\\';'", ""},
    {"third part", "SELECT E'a' \n 'b' \r '\\';'", ""},
    {"parts with another sign between", "SELECT E'a'\n,'\\'; SELECT 2", "more than one statement"},
    {"parts without a line's end", "SELECT E'a' '\\'; SELECT 2", "more than one statement"},
    {"parts of a plain literal", "SELECT 'a'\n'\\'; SELECT 2", "more than one statement"},
    {"parts with a comment between", "SELECT E'a' -- one\n'\\''", "a statement must not hold comments"},
    {"line comment", "SELECT 1 -- one", "a statement must not hold comments"},
    {"return ends a line comment", "-- one\r'", "a statement must not hold comments"},
    {"block comment", "SELECT /* one */ 1", "a statement must not hold comments"},
    {"quote in a comment", "SELECT 1 /* ' */; DROP TABLE x", "a statement must not hold comments"},
    {"comment signs in a literal", "SELECT '-- /* '", ""},
    {"minus and slash alone", "SELECT 4 - 2 / 1", ""},
    {"open literal", "SELECT 'abc", "a literal does not end"},
    {"open quoted name", "SELECT \"abc", "a quoted name does not end"},
    {"open block comment", "SELECT 1 /* abc", "a comment does not end"},
    {"lone quote at the end", "'", "a literal does not end"},
    {"UTF-8", "SELECT '漢字;' AS ä", ""},
};

TEST(SqlText, oneStatementIsTold) {
  for (const OneStatementCase& test : kOneStatementCases) {
    EXPECT_EQ(whyNotOneStatement(test.text), test.why) << test.label;
  }
}

struct PiecesCase {
  const char* text;
  std::vector<SqlPiece> pieces;
};

// Where a comment stands there is no one statement to tell anything by.
const PiecesCase kPiecesCases[] = {
    {"E'a' -- one\n'\\''",
     {SqlPiece::Code, SqlPiece::EscapeLiteral, SqlPiece::Code, SqlPiece::Comment, SqlPiece::Code,
      SqlPiece::EscapeLiteral}},
    {"E'a' -- one\r'\\''",
     {SqlPiece::Code, SqlPiece::EscapeLiteral, SqlPiece::Code, SqlPiece::Comment, SqlPiece::Code,
      SqlPiece::EscapeLiteral}},
    {"E'a'/* one */\n'\\'",
     {SqlPiece::Code, SqlPiece::EscapeLiteral, SqlPiece::Comment, SqlPiece::Code, SqlPiece::Literal}},
    {"a$$b$ $$b$$", {SqlPiece::Code, SqlPiece::DollarLiteral}},
    {"$a$$b$", {SqlPiece::DollarLiteral}},
};

TEST(SqlText, piecesAreTold) {
  for (const PiecesCase& test : kPiecesCases) {
    std::vector<SqlPiece> pieces;
    for (const auto& segment : scanSql(test.text)) {
      pieces.push_back(segment.piece);
    }
    EXPECT_EQ(pieces, test.pieces) << test.text;
  }
}

struct VerbCase {
  const char* statement;
  TransactionVerb verb;
};

const VerbCase kVerbCases[] = {
    {"BEGIN", TransactionVerb::Begin},
    {"begin immediate", TransactionVerb::Begin},
    {" \n\tBegin;", TransactionVerb::Begin},
    {"START TRANSACTION", TransactionVerb::Begin},
    {"START SLAVE", TransactionVerb::None},
    {"BEGIN TRAN", TransactionVerb::Begin},
    {"BEGIN ISOLATION LEVEL SERIALIZABLE", TransactionVerb::Begin},
    {"BEGIN UPDATE t SET a=1 DELETE FROM u END", TransactionVerb::None},
    {"BEGIN TRY SELECT 1 END TRY BEGIN CATCH END CATCH", TransactionVerb::None},
    {"END CONVERSATION", TransactionVerb::None},
    {"/* one */ -- two\n BEGIN", TransactionVerb::Begin},
    {"COMMIT /* CHAIN */ WORK", TransactionVerb::Commit},
    {"\xEF\xBB\xBF"
     "BEGIN",
     TransactionVerb::Begin},
    {"COMMIT", TransactionVerb::Commit},
    {"commit;", TransactionVerb::Commit},
    {"END", TransactionVerb::Commit},
    {"ROLLBACK", TransactionVerb::Rollback},
    {"rollback transaction", TransactionVerb::Rollback},
    {"ABORT", TransactionVerb::Rollback},
    {"ROLLBACK TO SAVEPOINT a", TransactionVerb::Savepoint},
    {"rollback transaction to a", TransactionVerb::Savepoint},
    {"SAVEPOINT a", TransactionVerb::Savepoint},
    {"release a", TransactionVerb::Savepoint},
    {"COMMIT AND CHAIN", TransactionVerb::Unsupported},
    {"COMMIT AND NO CHAIN", TransactionVerb::Commit},
    {"rollback work and chain", TransactionVerb::Unsupported},
    {"COMMIT PREPARED 'a'", TransactionVerb::Unsupported},
    {"ROLLBACK PREPARED 'a'", TransactionVerb::Unsupported},
    {"PREPARE TRANSACTION 'a'", TransactionVerb::Unsupported},
    {"PREPARE a AS SELECT 1", TransactionVerb::None},
    {"SELECT 'BEGIN'", TransactionVerb::None},
    {"'COMMIT'", TransactionVerb::None},
    {"BEGINNING", TransactionVerb::None},
    {"COMMIT$", TransactionVerb::None},
    {"ROLLBACK TO a$b$CHAIN", TransactionVerb::Savepoint},
    {"", TransactionVerb::None},
};

TEST(SqlText, transactionVerbsAreTold) {
  for (const VerbCase& test : kVerbCases) {
    EXPECT_EQ(transactionVerb(test.statement), test.verb) << test.statement;
  }
}

TEST(SqlText, whatComesBeforeAVerbMayBeOfAnyLength) {
  EXPECT_EQ(transactionVerb(std::string(100000, '\n') + "BEGIN"), TransactionVerb::Begin);
  EXPECT_EQ(transactionVerb("/*" + std::string(100000, 'x') + "*/COMMIT"), TransactionVerb::Commit);
  EXPECT_EQ(transactionVerb("ROLLBACK" + std::string(100000, ' ') + "TO a"), TransactionVerb::Savepoint);
}

struct YesNoCase {
  const char* statement;
  bool answer;
};

const YesNoCase kPlainDataCases[] = {
    {"SELECT 1", true},
    {" with x as (select 1) insert into t select * from x", true},
    {"INSERT INTO t VALUES(1)", true},
    {"update t set a=1", true},
    {"DELETE FROM t", true},
    {"(SELECT 1)", true},
    {"PRAGMA query_only=1", false},
    {"CREATE TEMP TABLE t(a)", false},
    {"SET a=1", false},
    {"ATTACH 'x' AS y", false},
    {"BEGIN UPDATE t SET a=1 END", false},
    {"", false},
};

TEST(SqlText, plainDataIsTold) {
  for (const YesNoCase& test : kPlainDataCases) {
    EXPECT_EQ(isPlainData(test.statement), test.answer) << test.statement;
  }
}

const YesNoCase kCopyCases[] = {
    {"COPY t TO STDOUT", true},
    {"copy t (a, b) from stdin", true},
    {"COPY \"t\" FROM STDIN WITH (FORMAT csv)", true},
    {"COPY (SELECT ')' FROM t) TO STDOUT", true},
    {"COPY t TO STDIN", true},
    {"COPY t FROM STDOUT", true},
    {"COPY t TO '/tmp/STDOUT'", false},
    {"COPY t FROM 'STDIN'", false},
    {"COPY (SELECT * FROM stdin) TO '/tmp/x'", false},
    {"COPY stdin FROM '/tmp/x'", false},
    {"COPY t TO PROGRAM 'cat'", false},
    {"SELECT 'COPY t TO STDOUT'", false},
};

TEST(SqlText, copyThroughTheClientIsTold) {
  for (const YesNoCase& test : kCopyCases) {
    EXPECT_EQ(copiesThroughClient(test.statement), test.answer) << test.statement;
  }
}

std::vector<std::string> texts(const std::string& script) {
  std::vector<std::string> result;
  for (const auto& statement : splitScript(script)) {
    result.push_back(statement.text);
  }
  return result;
}

using Texts = std::vector<std::string>;

TEST(SqlText, scriptIsSplitAtSemicolons) {
  EXPECT_EQ(texts("a; b ;;\n c"), (Texts{"a", "b", "c"}));
  EXPECT_EQ(texts(""), Texts{});
  EXPECT_EQ(texts(" ; ; "), Texts{});
  EXPECT_EQ(texts("a ';' ; b \";\" ; c $x$;$x$"), (Texts{"a ';'", "b \";\"", "c $x$;$x$"}));
}

TEST(SqlText, scriptCommentsAreDropped) {
  EXPECT_EQ(texts("-- one; two\na /* ; /* ; */ ; */ b;"), (Texts{"a   b"}));
}

TEST(SqlText, scriptKeepsTriggersWhole) {
  const std::string trigger =
      "CREATE TEMP TRIGGER t AFTER INSERT ON x BEGIN UPDATE x SET a=CASE b WHEN 1 THEN 2 END; DELETE FROM y; END";
  EXPECT_EQ(texts(trigger + "; SELECT 1;"), (Texts{trigger, "SELECT 1"}));
  EXPECT_EQ(texts("CREATE TABLE trigger_log(a); SELECT 1"), (Texts{"CREATE TABLE trigger_log(a)", "SELECT 1"}));
  EXPECT_EQ(texts("BEGIN; SELECT 1; END;"), (Texts{"BEGIN", "SELECT 1", "END"}));
  EXPECT_EQ(texts("CREATE TRIGGER t ON x EXECUTE FUNCTION f$begin(); SELECT 1"),
            (Texts{"CREATE TRIGGER t ON x EXECUTE FUNCTION f$begin()", "SELECT 1"}));
}

TEST(SqlText, scriptStatementsKnowTheirLine) {
  const auto statements = splitScript("-- head\n\na;\n/* two\nlines */ b\n;c");
  ASSERT_EQ(statements.size(), 3u);
  EXPECT_EQ(statements[0].line, 3u);
  EXPECT_EQ(statements[1].line, 5u);
  EXPECT_EQ(statements[2].line, 6u);
}

TEST(SqlText, openLiteralInAScriptIsRefused) {
  try {
    splitScript("a;\nb 'c");
    FAIL() << "no refusal";
  } catch (const zaroruntime::RuntimeError& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("line 2: a literal does not end"));
  }
}

}  // namespace
