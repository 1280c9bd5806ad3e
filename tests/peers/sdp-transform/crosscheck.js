#!/usr/bin/env node
// Cross-checks the library's reading of SDP against the independent parser sdp-transform.
// Usage: crosscheck.js <mediasession binary> <corpus dir> [least number of descriptions, 15]
// Every description of the corpus is read by both; the summaries must agree except where one of
// the library's own rules, listed in RULES, says otherwise. Any other difference fails the run.
'use strict';

const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');

let transform;
try {
  transform = require('sdp-transform');
} catch (e) {
  console.error('sdp-transform is not installed: run scripts/install-deps.sh (npm ci in ' + __dirname + ')');
  process.exit(1);
}

// Where our model deliberately differs from a plain parser:
const RULES = {
  disabled: 'A section our model cannot read as RTP, BFCP, SCTP or IX (port 0, unknown media type or transport, ' +
    'a codec name outside our table, a clock rate other than the table\'s, a malformed known attribute) ' +
    'becomes a disabled session with port 0: only its media type and transport are compared.',
  staticPayloads: 'A format without rtpmap is a codec only if it is a known static type (0 PCMU, 8 PCMA, 9 G722, ' +
    '18 G729); other such formats are skipped.',
  fecClock: 'x-ulpfecuc reports the table clock (8000) whatever its rtpmap announces.',
  iceValidation: 'ICE credentials count only when the ufrag has 4 bytes or more, the pwd 22 or more and there is ' +
    'a candidate; otherwise our ice is null. Media-level ufrag/pwd override session-level ones.',
  dtlsValidation: 'DTLS counts only with both a valid setup and a fingerprint (session or media level); our list ' +
    'holds every distinct fingerprint of both levels, theirs the last of one level.',
  applicationDirection: 'BFCP, SCTP and IX sessions report sendrecv; a disabled one inactive.',
  noMidForIx: 'IX sessions carry no mid.',
};

function fail(file, msg) {
  failures.push(`${file}: ${msg}`);
}

function ours(tool, file) {
  return JSON.parse(execFileSync(tool, ['sdp', 'parse', '--json', file], { encoding: 'utf8' }));
}

const staticTypes = { 0: ['PCMU', 8000], 8: ['PCMA', 8000], 9: ['G722', 8000], 18: ['G729', 8000] };

function compareCodecs(file, i, mine, theirs) {
  const maps = new Map((theirs.rtp || []).map((r) => [Number(r.payload), r]));
  const formats = String(theirs.payloads === undefined ? '' : theirs.payloads).split(' ').filter((x) => x !== '').map(Number);
  const expected = [];
  for (const pt of formats) {
    const r = maps.get(pt);
    if (r) expected.push({ pt, name: r.codec, clock: Number(r.rate) });
    else if (staticTypes[pt]) expected.push({ pt, name: staticTypes[pt][0], clock: staticTypes[pt][1] });
  }
  const got = mine.codecs.map((c) => ({ pt: c.pt, name: c.name, clock: c.clock }));
  if (got.length !== expected.length) {
    fail(file, `m[${i}] codec count ${got.length} vs ${expected.length}`);
    return;
  }
  got.forEach((c, k) => {
    const e = expected[k];
    if (c.pt !== e.pt || c.name !== e.name) fail(file, `m[${i}] codec ${k}: ${c.pt} ${c.name} vs ${e.pt} ${e.name}`);
    const clockExempt = c.name === 'x-ulpfecuc'; // RULES.fecClock
    if (!clockExempt && c.clock !== e.clock) fail(file, `m[${i}] codec ${c.pt} clock ${c.clock} vs ${e.clock}`);
  });
}

function compareIce(file, i, mine, media, session) {
  const ufrag = media.iceUfrag !== undefined ? String(media.iceUfrag) : session.iceUfrag;
  const pwd = media.icePwd !== undefined ? String(media.icePwd) : session.icePwd;
  const candidates = (media.candidates || []).length;
  const valid = ufrag !== undefined && pwd !== undefined && ufrag.length >= 4 && pwd.length >= 22 && candidates > 0;
  if (!valid) {
    if (mine.ice !== null) fail(file, `m[${i}] ice set although ${RULES.iceValidation}`);
    return;
  }
  if (mine.ice === null) return fail(file, `m[${i}] ice missing`);
  if (mine.ice.ufrag !== ufrag) fail(file, `m[${i}] ufrag ${mine.ice.ufrag} vs ${ufrag}`);
  if (mine.ice.pwd !== pwd) fail(file, `m[${i}] pwd ${mine.ice.pwd} vs ${pwd}`);
  if (mine.ice.candidates !== candidates) fail(file, `m[${i}] candidates ${mine.ice.candidates} vs ${candidates}`);
}

function compareDtls(file, i, mine, media, session) {
  const fp = media.fingerprint || session.fingerprint;
  const setup = media.setup || session.setup;
  const validSetup = ['active', 'passive', 'actpass'].includes(setup);
  if (!fp || !validSetup) {
    if (mine.dtls !== null) fail(file, `m[${i}] dtls set although ${RULES.dtlsValidation}`);
    return;
  }
  if (mine.dtls === null) return fail(file, `m[${i}] dtls missing`);
  if (mine.dtls.role !== setup) fail(file, `m[${i}] setup ${mine.dtls.role} vs ${setup}`);
  const want = `${fp.type} ${fp.hash}`;
  if (!mine.dtls.fingerprints.includes(want)) fail(file, `m[${i}] fingerprint ${want} not among ours`);
}

function compareFile(tool, file) {
  const text = fs.readFileSync(file, 'utf8');
  const theirs = transform.parse(text);
  const mine = ours(tool, file);
  const name = path.basename(file);

  if (mine.sessions.length !== theirs.media.length)
    return fail(name, `m line count ${mine.sessions.length} vs ${theirs.media.length}`);
  if (String(theirs.origin.username) !== mine.user_name) fail(name, 'user name differs');
  if (String(theirs.origin.sessionVersion) !== mine.session_version) fail(name, 'session version differs');
  if ((theirs.icelite === 'ice-lite') !== mine.ice_lite) fail(name, 'ice-lite differs');
  const bundle = (theirs.groups || []).filter((g) => g.type === 'BUNDLE')
    .flatMap((g) => String(g.mids).split(' ')).filter((x) => x !== '');
  if (JSON.stringify(bundle) !== JSON.stringify(mine.bundle)) fail(name, `bundle ${mine.bundle} vs ${bundle}`);

  theirs.media.forEach((media, i) => {
    const m = mine.sessions[i];
    if (m.media !== media.type) fail(name, `m[${i}] media ${m.media} vs ${media.type}`);
    if (m.transport !== media.protocol) fail(name, `m[${i}] transport ${m.transport} vs ${media.protocol}`);
    if (m.kind === 'disabled') { // RULES.disabled
      if (m.port !== 0) fail(name, `m[${i}] disabled with port ${m.port}`);
      return;
    }
    if (m.port !== Number(media.port)) fail(name, `m[${i}] port ${m.port} vs ${media.port}`);
    if (m.kind === 'rtp') {
      const direction = media.direction || 'sendrecv';
      if (m.direction !== direction) fail(name, `m[${i}] direction ${m.direction} vs ${direction}`);
      compareCodecs(name, i, m, media);
    } else if (m.direction !== 'sendrecv') {
      fail(name, `m[${i}] ${RULES.applicationDirection}`);
    }
    const mid = media.mid === undefined ? null : String(media.mid);
    if (m.kind !== 'ix' && m.mid !== mid) fail(name, `m[${i}] mid ${m.mid} vs ${mid}`); // RULES.noMidForIx
    if (m.kind !== 'ix') compareIce(name, i, m, media, theirs);
    compareDtls(name, i, m, media, theirs);
  });
}

const failures = [];
const [tool, dir, minimum = '15'] = process.argv.slice(2);
if (!tool || !dir) {
  console.error('usage: crosscheck.js <mediasession> <corpus dir>');
  process.exit(2);
}
const files = fs.readdirSync(dir).filter((f) => f.endsWith('.sdp')).sort();
if (files.length < Number(minimum)) {
  console.error(`corpus too small: ${files.length} descriptions`);
  process.exit(1);
}
for (const f of files) {
  try {
    compareFile(tool, path.join(dir, f));
  } catch (e) {
    fail(f, `error: ${e.message}`);
  }
}
if (failures.length) {
  console.error(failures.join('\n'));
  console.error(`${failures.length} difference(s) in ${files.length} descriptions`);
  process.exit(1);
}
console.log(`${files.length} descriptions agree with sdp-transform`);
