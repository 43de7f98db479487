-- A ledger as the first version left it: a file that was delivered, one on its way and many
-- that were refused.
CREATE TABLE transfers(
  id INTEGER PRIMARY KEY, send_time INTEGER NOT NULL, path_crc INTEGER NOT NULL,
  file_kind INTEGER NOT NULL, udata_size INTEGER NOT NULL, size INTEGER NOT NULL,
  name NOT NULL, folder NOT NULL, source NOT NULL,
  first_packet REAL NOT NULL, last_packet REAL NOT NULL,
  parts INTEGER NOT NULL, received INTEGER NOT NULL, repeated INTEGER NOT NULL,
  differing INTEGER NOT NULL, received_per_pass TEXT NOT NULL, repeated_per_pass TEXT NOT NULL,
  missing TEXT NOT NULL, outcome TEXT NOT NULL, why NOT NULL, delivered_to NOT NULL);
CREATE INDEX transfers_by_time ON transfers(first_packet);
CREATE INDEX transfers_by_outcome ON transfers(outcome, first_packet);
CREATE INDEX transfers_by_journal ON transfers(id & 4294967295, send_time & 4294967295, path_crc);
CREATE TABLE journal(
  place INTEGER PRIMARY KEY, sent INTEGER NOT NULL, id_low INTEGER NOT NULL,
  crc INTEGER NOT NULL, path NOT NULL, UNIQUE(sent, id_low, crc, path));
INSERT INTO transfers VALUES(-1, 9, 204, 0, 1400, 5, 'n', '/a/../b', '1.2.3.4:99', 1.5, 2.5, 1, 1, 0,
  0, '1', '0,2', '', 'delivered', '', 'in/a/%2E%2E/b/n (1)');
INSERT INTO transfers VALUES(7, 9, 205, 0, 1400, 1400, 'm', '', 'x', 3.5, 4.5, 2, 1, 0,
  0, '1', '', '2', 'receiving', '', '');
WITH RECURSIVE n(n) AS (SELECT 1000 UNION ALL SELECT n + 1 FROM n WHERE n < 5999)
  INSERT INTO transfers SELECT n, 9, 1, 0, 1400, 0, 'n', '', '', 9, 9, 0, 0, 0, 0, '', '', '',
    'refused', '', '' FROM n;
INSERT INTO journal VALUES(3, 9, 4294967295, 204, 'p');
PRAGMA user_version = 1;
