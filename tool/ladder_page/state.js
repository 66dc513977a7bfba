// SPDX-License-Identifier: MIT
// What the page shows. Every text that came over the bus enters the document as text, by textContent, never as markup.
"use strict";
const element = name => document.getElementById(name);
const data = JSON.parse(element("data").textContent);
const texts = data.texts, lanes = data.lanes, rows = data.rows;

// Columns of a row; parameters are three texts each.
const TIME = 0, KIND = 1, FROM = 2, TO = 3, VIA = 4, NAME = 5, MEANING = 6, WORDS = 7, PARTNER = 8, PARAMETERS = 9;
const [SIGNAL, EVENT, CALL, ONE_WAY, REPLY, ERROR, WAIT, CONNECTED, CLOSED, LOST, BROKEN, BEGINS, ENDS] = Array(13).keys();
// Of each kind: what it is called, its class in the style, its sign, the button that hides it.
const kinds = [
  ["signal", "signal", "\u25b6", "signals"], ["event", "event", "\u25c0", "events"], ["call", "call", "\u2192", "calls"],
  ["one-way call", "call", "\u2192", "calls"], ["answer", "reply", "\u21a9", "calls"], ["error", "error", "\u2716", "trouble"],
  ["wait", "wait", "\u2016", "trouble"], ["connected", "reply", "\u25cf", "calls"], ["end", "error", "\u2297", "trouble"],
  ["loss", "wait", "\u2716", "trouble"], ["broken", "error", "\u2716", "trouble"], ["sound", "sound", "\u266a", "sound"],
  ["sound", "sound", "\u266a", "sound"],
];
const APPLICATION = 0, PROCESS = 1, ENDPOINT = 2, SOUND = 3; // kinds of lanes
const SLOW = 1e6; // microseconds; who waits longer is blocked, and a longer silence is marked

const name = i => texts[rows[i][NAME]];
const lane = i => lanes[i][0];
const last = rows.length ? rows[rows.length - 1][TIME] : 0;

// Microseconds since the call; null: it is no answer, or the call was not seen.
function elapsed(i) {
  const row = rows[i];
  return (row[KIND] === REPLY || row[KIND] === ERROR) && row[PARTNER] >= 0 ? row[TIME] - rows[row[PARTNER]][TIME] : null;
}

const isUnanswered = i => rows[i][KIND] === CALL && rows[i][PARTNER] < 0;

// Whether whoever called in this row was held up by it.
function blocks(i) {
  const row = rows[i];
  if (isUnanswered(i)) return last - row[TIME] >= SLOW;
  return row[KIND] <= CALL && row[PARTNER] > i && rows[row[PARTNER]][TIME] - row[TIME] >= SLOW;
}

function isTrouble(i) {
  return kinds[rows[i][KIND]][3] === "trouble" || elapsed(i) >= SLOW || isUnanswered(i);
}

function duration(us) {
  const ms = us / 1000;
  return ms < 10 ? `${ms.toFixed(2)} ms` : ms < 1000 ? `${ms.toFixed(0)} ms` : `${(ms / 1000).toFixed(1)} s`;
}

// Who works on a call and who is blocked by one, at each row and lane.
const BUSY = 1, BLOCKED = 2;
const activity = new Uint8Array(rows.length * lanes.length);
{
  const busy = new Int32Array(lanes.length), blocked = new Int32Array(lanes.length);
  const processOf = at => (lanes[at][2] >= 0 ? lanes[at][2] : at);
  const count = (call, by) => {
    busy[processOf(rows[call][TO])] += by;
    if (blocks(call)) blocked[processOf(rows[call][FROM])] += by;
  };
  rows.forEach((row, i) => {
    // Nothing that has begun ends with an answer from before its call, by a clock that was set back, or to a one-way call.
    if (elapsed(i) !== null && row[PARTNER] < i && rows[row[PARTNER]][KIND] <= CALL) count(row[PARTNER], -1);
    for (let at = 0; at < lanes.length; at++)
      activity[i * lanes.length + at] = (busy[at] > 0 ? BUSY : 0) | (blocked[at] > 0 ? BLOCKED : 0);
    if (row[KIND] <= CALL && (row[PARTNER] > i || blocks(i))) count(i, 1);
  });
}

// Streams of sound as bars, each in the first column that is free.
const streams = [];
{
  const free = [];
  rows.forEach((row, i) => {
    if (row[KIND] !== BEGINS) return;
    let column = free.findIndex(end => end < i);
    if (column < 0) column = free.length;
    free[column] = row[PARTNER];
    streams.push({begin: i, end: row[PARTNER], column: Math.min(column, 9)});
  });
}

// What is chosen and how it is shown.
const state = {view: [], tops: [0], chosen: -1, open: new Map(), form: 0, words: [], hidden: new Set(), used: []};
