-- Speaks the mail filter protocol with a filter whose rules filter_protocol.py made.
local function check(what, truth)
  if not truth then
    error(what)
  end
end

local function connect()
  local conn = mt.connect(socket)
  check("connects", conn)
  return conn
end

-- What is negotiated away is not sent; the replies that are not awaited are none.
local function begin(conn, sender, ...)
  mt.macro(conn, SMFIC_MAIL, "i", "Q1", ...)
  check("MAIL is sent", mt.mailfrom(conn, sender) == nil)
  check("MAIL has no reply of its own", mt.getreply(conn) ~= SMFIR_TEMPFAIL)
end

local function recipient(conn, address, reply)
  check("RCPT is sent", mt.rcptto(conn, address) == nil)
  check("reply to " .. address .. " is " .. string.char(mt.getreply(conn)), mt.getreply(conn) == reply)
end

local function finish(conn, headers)
  for _, header in ipairs(headers) do
    check("a header is sent", mt.header(conn, header[1], header[2]) == nil)
  end
  check("the end is sent", mt.eom(conn) == nil)
end

-- Stages: what the filter does not need is not asked for.
local conn = connect()
check("negotiates", mt.negotiate(conn, nil, nil, nil) == nil)
for _, step in ipairs({ SMFIP_NOCONNECT, SMFIP_NOHELO, SMFIP_NOBODY, SMFIP_NOEOH, SMFIP_NODATA, SMFIP_NOUNKNOWN }) do
  check("a stage is negotiated away", mt.test_option(conn, step))
end
for _, action in ipairs({ SMFIF_ADDHDRS, SMFIF_CHGHDRS, SMFIF_ADDRCPT, SMFIF_DELRCPT, SMFIF_QUARANTINE }) do
  check("an action is negotiated", mt.test_action(conn, action))
end
check("the body is not to be changed", not mt.test_action(conn, SMFIF_CHGBODY))

-- A message of each kind, all over one connection.
begin(conn, "<refused@bad.test>")
recipient(conn, "<a@example.com>", SMFIR_REPLYCODE)
check("aborts", mt.abort(conn) == nil)

begin(conn, "<held@bad.test>")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
finish(conn, { { "Subject", "Hello" }, { "X-Zaro-Policy", "forged" } })
check("is accepted", mt.getreply(conn) == SMFIR_CONTINUE)
check("is held", mt.eom_check(conn, MT_QUARANTINE, "area Spam area"))
check("the forged header goes", mt.eom_check(conn, MT_HDRDELETE, "X-Zaro-Policy"))
check("the header comes", mt.eom_check(conn, MT_HDRINSERT, "X-Zaro-Policy", "rule=hold; code=2; pattern=held@bad.test"))

begin(conn, "<tagged@bad.test>")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
finish(conn, { { "Subject", "Hello" } })
check("the subject is tagged", mt.eom_check(conn, MT_HDRCHANGE, "Subject", "[X] Hello"))

begin(conn, "<dropped@bad.test>")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
finish(conn, { { "Subject", "Hello" } })
check("is discarded", mt.getreply(conn) == SMFIR_DISCARD)

begin(conn, "<moved@bad.test>")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
finish(conn, { { "Subject", "Hello" } })
check("the recipient goes", mt.eom_check(conn, MT_RCPTDELETE, "<a@example.com>"))
check("another comes", mt.eom_check(conn, MT_RCPTADD, "other@example.com"))

begin(conn, "<>")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
finish(conn, { { "Subject", "Hello" } })
check("nothing is done", not mt.eom_check(conn, MT_HDRINSERT, "X-Zaro-Policy"))
mt.disconnect(conn)

-- A connection that breaks off in a message leaves nothing behind.
conn = connect()
begin(conn, "<held@bad.test>")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
mt.disconnect(conn, false)

-- Who logged in is exempt.
conn = connect()
begin(conn, "<refused@bad.test>", "{auth_authen}", "somebody")
recipient(conn, "<a@example.com>", SMFIR_CONTINUE)
mt.disconnect(conn)
