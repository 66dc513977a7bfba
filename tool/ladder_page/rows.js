// SPDX-License-Identifier: MIT
// The rows that can be seen, and no others, are in the document.
const shown = new Map(); // rows by their number

function node(kind, style, text) {
  const made = document.createElement(kind);
  if (style) made.className = style;
  if (text !== undefined) made.textContent = text;
  return made;
}

function timeText(i, position) {
  if (state.form === 2) return new Date(data.begin + rows[i][TIME] / 1000).toISOString().slice(11, 23);
  if (state.form === 1) return `+${(silence(position) / 1e6).toFixed(4)}`;
  return (rows[i][TIME] / 1e6).toFixed(4);
}

// A text with the words of the filter marked.
function marked(parent, text) {
  const words = state.words.filter(word => word.shown).map(word => word.word);
  const small = text.toLowerCase();
  // A letter that changes its length would move the marks.
  for (let at = 0; words.length && small.length === text.length;) {
    let next = -1, found = "";
    for (const word of words) {
      const where = small.indexOf(word, at);
      if (where >= 0 && (next < 0 || where < next)) [next, found] = [where, word];
    }
    if (next < 0) {
      parent.append(text.slice(at));
      return;
    }
    parent.append(text.slice(at, next), node("mark", "", text.slice(next, next + found.length)));
    at = next + found.length;
  }
  if (!words.length || small.length !== text.length) parent.append(text);
}

function wordsNode(i) {
  const row = rows[i], [, style, sign] = kinds[row[KIND]], took = elapsed(i);
  const words = node("div", "words"), title = node("b");
  const mark = node("span", style, sign);
  mark.setAttribute("aria-hidden", "true");
  marked(title, name(i));
  words.append(mark, " ", title, " ");
  if (row[MEANING]) marked(words, `${texts[row[MEANING]]} `);
  const rest = node("span", "quiet");
  marked(rest, cut(texts[row[WORDS]], 200));
  words.append(rest);
  if (took !== null) words.append(` after ${duration(took)}`);
  if (isUnanswered(i)) words.append(node("span", "error", " no answer"));
  return words;
}

function rowNode(i, position) {
  const row = rows[i], made = node("div", "row");
  made.id = `m${i}`;
  made.setAttribute("role", "option");
  made.setAttribute("aria-selected", i === state.chosen);
  made.setAttribute("aria-setsize", state.view.length);
  made.setAttribute("aria-posinset", position + 1);
  made.style.top = `${state.tops[position]}px`;
  made.style.height = `${state.tops[position + 1] - state.tops[position]}px`;
  made.style.width = `${TIMES + place.lanes + place.words}px`;
  made.style.gridTemplateColumns = `${TIMES}px ${place.lanes}px ${place.words}px`;
  made.classList.toggle("chosen", i === state.chosen);
  made.classList.toggle("partner", state.chosen >= 0 && rows[state.chosen][PARTNER] === i);
  const ends = row[FROM] === row[TO] ? lane(row[FROM]) : `${lane(row[FROM])} to ${lane(row[TO])}`;
  made.append(node("div", "time", timeText(i, position)), rowPicture(i, position, state.tops[position + 1] - state.tops[position]),
    wordsNode(i), node("span", "spoken", `${kinds[row[KIND]][0]}, ${ends}`));
  return made;
}

function sizesFind() {
  state.tops = new Float64Array(state.view.length + 1);
  state.view.forEach((i, at) => { state.tops[at + 1] = state.tops[at] + HIGH + (state.open.get(i) ?? 0); });
  element("rows").style.height = `${state.tops[state.view.length]}px`;
  element("rows").style.width = element("lanes").style.width = `${TIMES + place.lanes + place.words}px`;
}

// The first position in the view whose row ends below a height.
function positionAt(top) {
  let low = 0, high = state.view.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (state.tops[middle + 1] <= top) low = middle + 1; else high = middle;
  }
  return low;
}

// The part of the ladder that is seen. To ask for it behind a change of the document lays all of it out at once.
function seenNow() {
  const scroll = element("scroll");
  return {top: scroll.scrollTop, high: scroll.clientHeight};
}

// Puts what can be seen into the document, or everything, and takes away what cannot.
function rowsDraw(all, seen = seenNow()) {
  const margin = 120;
  const top = all ? 0 : seen.top - HEAD - margin, bottom = all ? Infinity : seen.top + seen.high + margin;
  const wanted = new Map();
  for (let at = positionAt(Math.max(0, top)); at < state.view.length && state.tops[at] < bottom; at++) wanted.set(state.view[at], at);
  for (const [i, made] of shown) {
    if (wanted.has(i)) continue;
    made.remove();
    shown.delete(i);
  }
  const fresh = document.createDocumentFragment();
  for (const [i, at] of wanted) {
    if (shown.has(i)) continue;
    shown.set(i, rowNode(i, at));
    fresh.append(shown.get(i));
  }
  element("rows").append(fresh);
  detailsDraw(wanted);
}

function rowsForget() {
  for (const made of shown.values()) made.remove();
  shown.clear();
}

function pageDraw() {
  placesFind();
  sizesFind();
  rowsForget();
  element("lanes").replaceChildren(lanesDraw());
  element("nothing").hidden = state.view.length > 0;
  rowsDraw(false);
  mapDraw();
}
