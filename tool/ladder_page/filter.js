// SPDX-License-Identifier: MIT
// Which rows are in the view: by the words of the filter and the buttons, both of which stand in the address.
const haystacks = new Array(rows.length); // what words are looked for in, made when it is first wanted

function haystack(i) {
  if (haystacks[i] === undefined) {
    const row = rows[i];
    haystacks[i] = [kinds[row[KIND]][0], lane(row[FROM]), lane(row[TO]), row[VIA] >= 0 ? lane(row[VIA]) : "",
      ...[row[NAME], row[MEANING], row[WORDS], ...row[PARAMETERS]].map(at => texts[at])].join(" ").toLowerCase();
  }
  return haystacks[i];
}

// A word of the filter as a question about a row.
function question(text) {
  const not = text.length > 1 && text[0] === "-";
  const word = not ? text.slice(1) : text;
  const slower = /^rtt>([\d.]+)$/.exec(word);
  const asks = slower ? i => elapsed(i) > slower[1] * 1000 : word === "err" ? isTrouble : i => haystack(i).includes(word);
  return {word, shown: !not && !slower && word !== "err", holds: i => asks(i) !== not};
}

function filterApply() {
  state.words = element("query").value.toLowerCase().split(/\s+/).filter(Boolean).map(question);
  state.view = [];
  for (let i = 0; i < rows.length; i++) {
    if (!state.hidden.has(kinds[rows[i][KIND]][3]) && state.words.every(word => word.holds(i))) state.view.push(i);
  }
  const all = rows.length.toLocaleString("en"), shown = state.view.length.toLocaleString("en");
  element("count").textContent = shown === all ? `${all} messages` : `${shown} of ${all}`;
  if (!state.view.includes(state.chosen)) state.chosen = -1;
  lanesChoose();
  detailsForget();
  pageDraw();
  if (state.chosen >= 0) choose(state.chosen);
}

// Lanes that the view needs: without those of others it fits.
function lanesChoose() {
  const wanted = new Set();
  for (const i of state.view)
    for (const at of [rows[i][FROM], rows[i][TO], rows[i][VIA]]) if (at >= 0) wanted.add(at);
  for (const at of [...wanted]) if (lanes[at][2] >= 0) wanted.add(lanes[at][2]);
  state.used = wanted.size ? [...wanted].sort((a, b) => a - b) : lanes.map((_, at) => at);
}

function addressWrite() {
  const parts = [];
  if (element("query").value) parts.push(`q=${encodeURIComponent(element("query").value)}`);
  if (state.hidden.size) parts.push(`hide=${[...state.hidden].join(",")}`);
  const address = parts.length ? `#${parts.join("&")}` : "#";
  if (location.hash !== address && (location.hash || parts.length)) history.replaceState(null, "", address);
}

function addressRead() {
  const parts = new URLSearchParams(location.hash.slice(1));
  element("query").value = parts.get("q") ?? "";
  const groups = new Set(kinds.map(kind => kind[3]));
  state.hidden = new Set((parts.get("hide") ?? "").split(",").filter(group => groups.has(group)));
  for (const button of element("kinds").children) button.setAttribute("aria-pressed", !state.hidden.has(button.dataset.group));
}
