// SPDX-License-Identifier: MIT
// Lanes and arrows as SVG. The same shapes make a row of the page and of the picture that is saved.
const HIGH = 30, AXIS = 19, HEAD = 46, TIMES = 124; // of a row; its arrow; of the lanes' names; of the times
const place = {lanes: 0, words: 0, x: new Map()};  // widths, and where each lane is

function svgNode(kind, attributes, text) {
  const node = document.createElementNS("http://www.w3.org/2000/svg", kind);
  for (const key in attributes) node.setAttribute(key, attributes[key]);
  if (text !== undefined) node.textContent = text;
  return node;
}

function placesFind() {
  const width = element("scroll").clientWidth;
  place.words = Math.max(200, Math.min(520, width * 0.3));
  place.lanes = Math.max(96 * state.used.length, width - TIMES - place.words - 4);
  place.x = new Map(state.used.map((at, i) => [at, Math.round((i + 0.5) * place.lanes / state.used.length)]));
}

// A text that has no more than so many characters.
const cut = (text, most) => {
  const characters = [...text.slice(0, 4 * most)];
  return characters.length > most ? characters.slice(0, most - 1).join("") + "\u2026" : text;
};

function lanesDraw() {
  const room = place.lanes / state.used.length;
  const picture = svgNode("svg", {width: TIMES + place.lanes + place.words, height: HEAD});
  for (const at of state.used) {
    const x = TIMES + place.x.get(at), is_small = lanes[at][1] === ENDPOINT;
    const wide = Math.min(room - 8, is_small ? 110 : 150), high = is_small ? 24 : 30;
    picture.append(
      svgNode("rect", {class: "box", x: x - wide / 2, y: 22 - high / 2, width: wide, height: high, rx: is_small ? 12 : 5}),
      svgNode("text", {class: is_small ? "" : "bold", x, y: 26, "text-anchor": "middle"}, cut(lane(at), Math.floor(wide / 7))),
      svgNode("path", {class: "life", d: `M${x} 37V${HEAD}`}));
  }
  picture.append(svgNode("text", {x: TIMES - 10, y: 26, "text-anchor": "end"}, state.form === 2 ? "time" : "time (s)"),
    svgNode("text", {x: TIMES + place.lanes + 6, y: 26}, "message"));
  return picture;
}

// How long nothing in the view passed before a row.
const silence = position => position > 0 ? rows[state.view[position]][TIME] - rows[state.view[position - 1]][TIME] : 0;

function lifelinesDraw(picture, i, position, high) {
  const gap = silence(position);
  picture.append(svgNode("path", {class: gap > SLOW ? "life silent" : "life",
    d: state.used.map(at => `M${place.x.get(at)} 0V${high}`).join("")}));
  for (const at of state.used) {
    const what = activity[i * lanes.length + at], x = place.x.get(at);
    if (what & BLOCKED) picture.append(svgNode("rect", {class: "blocked", x: x - 4, y: -1, width: 8, height: high + 2}));
    else if (what & BUSY) picture.append(svgNode("rect", {class: "busy", x: x - 3, y: -1, width: 6, height: high + 2}));
  }
  if (gap > SLOW) picture.append(svgNode("text", {class: "small", x: 4, y: 9}, `+${duration(gap)}`));
}

// Bars of the streams that sound at a row.
function barsDraw(picture, i, high) {
  for (const stream of streams) {
    if (i < stream.begin || i > stream.end) continue;
    const x = place.x.get(rows[stream.begin][FROM]);
    if (x === undefined) continue;
    const top = i === stream.begin ? AXIS : -1, bottom = i === stream.end ? AXIS : high + 1;
    picture.append(svgNode("rect", {class: "bar sound", x: x - 30 + 7 * stream.column, y: top, width: 5,
      height: Math.max(2, bottom - top)}));
  }
}

function arrowDraw(picture, row, label) {
  const [, style] = kinds[row[KIND]];
  const from = place.x.get(row[FROM]), to = place.x.get(row[TO]), on = to > from ? 1 : -1;
  const is_answer = row[KIND] === REPLY || row[KIND] === ERROR;
  const is_open = is_answer || row[KIND] === EVENT || row[KIND] === ONE_WAY;
  picture.append(
    svgNode("path", {class: `line ${style}${is_answer ? " dashed" : ""}`, d: `M${from} ${AXIS}H${to - on * 4}`}),
    svgNode("path", {class: `head ${style}${is_open ? "" : " filled"}`,
      d: `M${to - on * 10} ${AXIS - 5}L${to - on * 2} ${AXIS}L${to - on * 10} ${AXIS + 5}${is_open ? "" : "z"}`}));
  let left = Math.min(from, to), right = Math.max(from, to);
  const via = place.x.get(row[VIA]);
  if (via > left && via < right) {
    picture.append(svgNode("circle", {class: `via ${style}`, cx: via, cy: AXIS, r: 3}));
    if (via - left < right - via) left = via; else right = via;
  }
  picture.append(svgNode("text", {class: `halo ${style}${row[KIND] <= EVENT ? " bold" : ""}`, x: (left + right) / 2, y: AXIS - 6,
    "text-anchor": "middle"}, cut(label, Math.max(4, Math.floor((right - left) / 6.6)))));
}

function labelOf(i) {
  const took = elapsed(i), kind = rows[i][KIND];
  const sign = kind === ERROR || kind === CLOSED || isUnanswered(i) ? `${kinds[ERROR][2]} ` : blocks(i) ? `${kinds[WAIT][2]} ` : "";
  return sign + name(i) + (took === null ? "" : ` ${duration(took)}`);
}

function rowPicture(i, position, high) {
  const picture = svgNode("svg", {width: place.lanes, height: high, "aria-hidden": "true"});
  const row = rows[i];
  lifelinesDraw(picture, i, position, high);
  barsDraw(picture, i, high);
  if (row[FROM] !== row[TO]) {
    arrowDraw(picture, row, labelOf(i));
  } else if (row[KIND] < BEGINS) {
    const [, style, sign] = kinds[row[KIND]], x = place.x.get(row[FROM]);
    picture.append(svgNode("path", {class: `head filled ${style}`, d: `M${x - 6} ${AXIS - 5}h12v10h-12z`}));
    const is_right = x > place.lanes / 2;
    picture.append(svgNode("text", {class: `halo ${style}`, x: is_right ? x - 12 : x + 12, y: AXIS + 4,
      "text-anchor": is_right ? "end" : "start"}, cut(`${sign} ${name(i)}`, 40)));
  }
  return picture;
}
