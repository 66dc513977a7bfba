// SPDX-License-Identifier: MIT
// Messages over time above the ladder, trouble as ticks, and the part that is seen.
function mapDraw() {
  const canvas = element("map"), wide = canvas.clientWidth, high = canvas.clientHeight, fine = devicePixelRatio || 1;
  canvas.width = wide * fine;
  canvas.height = high * fine;
  const pen = canvas.getContext("2d"), style = getComputedStyle(document.documentElement);
  const colour = name => style.getPropertyValue(`--${name}`);
  pen.scale(fine, fine);
  const counts = new Float64Array(Math.ceil(wide / 3) + 1), whole = last || 1;
  for (const i of state.view) counts[Math.floor(rows[i][TIME] / whole * wide / 3)]++;
  const most = Math.max(1, ...counts);
  pen.fillStyle = colour("edge");
  counts.forEach((count, at) => count && pen.fillRect(at * 3, high - 2 - count / most * (high - 6), 2, high));
  pen.fillStyle = colour("error");
  for (const i of state.view) {
    if (!isTrouble(i)) continue;
    const x = rows[i][TIME] / whole * wide;
    pen.fillRect(x - 1, 0, 2, high);
    pen.fillRect(x - 3, 0, 6, 4);
  }
  mapFrame();
}

function mapFrame(seen = seenNow()) {
  const frame = element("frame");
  frame.hidden = !state.view.length;
  if (frame.hidden) return;
  const at = top => rows[state.view[Math.min(positionAt(top), state.view.length - 1)]][TIME] / (last || 1) * 100;
  const left = at(seen.top), right = at(seen.top + seen.high - HEAD);
  frame.style.left = `${left}%`;
  frame.style.width = `${right - left}%`;
}

function mapGo(event) {
  const time = event.offsetX / element("map").clientWidth * last;
  const position = state.view.findIndex(i => rows[i][TIME] >= time);
  if (state.view.length) choose(state.view[position < 0 ? state.view.length - 1 : position]);
}
