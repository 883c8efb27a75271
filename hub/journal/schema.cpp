#include "hub/journal/schema.h"

#include <array>

namespace hub {

namespace {

constexpr const char* kFirst = R"sql(
CREATE TABLE till (
  id      INTEGER PRIMARY KEY,
  name    TEXT NOT NULL UNIQUE,
  role    TEXT NOT NULL,
  created INTEGER NOT NULL
);
CREATE TABLE token (
  digest  BLOB PRIMARY KEY,          -- SHA-256; the token itself is shown once and kept nowhere
  till    INTEGER NOT NULL REFERENCES till(id),
  created INTEGER NOT NULL,
  revoked INTEGER
) WITHOUT ROWID;

CREATE TABLE device (
  serial         TEXT PRIMARY KEY,
  first_baseline TEXT NOT NULL,      -- 44 digits, or '' for none
  last           TEXT NOT NULL,      -- likewise
  sessions_below INTEGER NOT NULL,   -- numbers are taken in blocks; a restart begins behind the block
  epoch          INTEGER NOT NULL DEFAULT 0,
  refused_code   TEXT NOT NULL DEFAULT ''   -- which activation code file was refused, by inode and time
) WITHOUT ROWID;

CREATE TABLE operation (
  id           INTEGER PRIMARY KEY,
  till         INTEGER NOT NULL REFERENCES till(id),
  function     TEXT NOT NULL,
  key          TEXT NOT NULL,
  body         BLOB NOT NULL,
  cancels      TEXT NOT NULL,
  till_session INTEGER,
  attempt      INTEGER NOT NULL,
  state        TEXT NOT NULL,
  serial       TEXT NOT NULL DEFAULT '',
  session      INTEGER NOT NULL DEFAULT 0,
  baseline     TEXT NOT NULL DEFAULT '',
  port_changed INTEGER NOT NULL DEFAULT 0,
  stand_in     TEXT NOT NULL DEFAULT '',
  reply        BLOB NOT NULL DEFAULT x'',
  receipt      TEXT NOT NULL DEFAULT '',
  reason       TEXT NOT NULL DEFAULT '',
  created      INTEGER NOT NULL,
  changed      INTEGER NOT NULL,
  UNIQUE (till, function, key)
);
-- Few rows are open at any time, however long the journal is.
CREATE INDEX open_operation ON operation(state) WHERE state IN ('queued', 'sent', 'unknown', 'undecided');
CREATE INDEX operation_session ON operation(till, till_session, id);
CREATE INDEX operation_watched ON operation(serial, changed) WHERE state = 'not-issued' AND session > 0;

CREATE TABLE receipt (
  key       TEXT PRIMARY KEY,        -- 44 digits
  operation INTEGER REFERENCES operation(id),   -- NULL: an orphan, nobody of ours is known to have asked for it
  serial    TEXT NOT NULL,
  number    INTEGER NOT NULL,
  total     TEXT NOT NULL,
  moment    INTEGER NOT NULL,
  reply     BLOB NOT NULL,           -- an orphan's; otherwise the operation has it
  claimed   INTEGER NOT NULL DEFAULT 0   -- an orphan that a supervisor has settled
) WITHOUT ROWID;
CREATE INDEX receipt_moment ON receipt(moment);
CREATE INDEX receipt_orphan ON receipt(serial) WHERE operation IS NULL AND claimed = 0;

-- A session that a till was told does not exist: nothing is sold under it any more.
CREATE TABLE closed_session (
  till    INTEGER NOT NULL REFERENCES till(id),
  session INTEGER NOT NULL,
  moment  INTEGER NOT NULL,
  PRIMARY KEY (till, session)
) WITHOUT ROWID;

-- Who did what, and what happened that somebody should look at.
CREATE TABLE audit (
  id        INTEGER PRIMARY KEY,
  moment    INTEGER NOT NULL,
  alarm     INTEGER NOT NULL,
  who       TEXT NOT NULL,
  operation INTEGER,
  text      TEXT NOT NULL
);
CREATE INDEX audit_operation ON audit(operation) WHERE operation IS NOT NULL;
)sql";

constexpr std::array kMigrations{kFirst};

}  // namespace

std::span<const char* const> migrations() {
  return kMigrations;
}

}  // namespace hub
