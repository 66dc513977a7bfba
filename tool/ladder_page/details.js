// SPDX-License-Identifier: MIT
// What a message carries, below its row.
const details = new Map(); // tables in the document, by row

function cellsAdd(table, heading, value, words) {
  const line = table.insertRow();
  const first = node("th");
  first.scope = "row";
  marked(first, heading);
  line.append(first);
  marked(line.insertCell(), value);
  line.cells[1].className = "value";
  marked(line.insertCell(), words);
}

function detailsNode(i) {
  const row = rows[i], box = node("div", "details"), table = node("table");
  const ends = row[FROM] === row[TO] ? lane(row[FROM]) : `${lane(row[FROM])} \u2192 ${lane(row[TO])}`;
  cellsAdd(table, kinds[row[KIND]][0], name(i), texts[row[MEANING]]);
  cellsAdd(table, "between", ends + (row[VIA] >= 0 ? `, by ${lane(row[VIA])}` : ""), `number ${i + 1}`);
  cellsAdd(table, "time", new Date(data.begin + row[TIME] / 1000).toISOString().replace("T", " "), "");
  if (texts[row[WORDS]]) cellsAdd(table, "says", texts[row[WORDS]], "");
  if (row[PARTNER] >= 0) {
    const before = row[PARTNER] < i, us = Math.abs(row[TIME] - rows[row[PARTNER]][TIME]);
    cellsAdd(table, before ? "belongs to" : "is followed by", `number ${row[PARTNER] + 1}, ${name(row[PARTNER])}`,
      `${duration(us)} ${before ? "before" : "later"} (p goes there)`);
  }
  for (let at = 0; at < row[PARAMETERS].length; at += 3)
    cellsAdd(table, ...row[PARAMETERS].slice(at, at + 3).map(number => texts[number]));
  box.append(table);
  box.setAttribute("role", "region");
  box.setAttribute("aria-label", `Message ${i + 1}`);
  box.tabIndex = 0;
  return box;
}

// Opens or closes the table of a row.
function detailsTurn(i) {
  if (state.open.delete(i)) {
    details.get(i)?.remove();
    details.delete(i);
  } else {
    const box = detailsNode(i);
    element("opened").append(box);
    state.open.set(i, box.offsetHeight + 8);
    details.set(i, box);
  }
  sizesFind();
  rowsForget();
  choose(i);
}

// What is marked in them is another filter's.
function detailsForget() {
  for (const box of details.values()) box.remove();
  details.clear();
}

// The open ones among the rows that are shown, by their position in the view.
function detailsDraw(wanted) {
  for (const [i, box] of details) {
    if (wanted.has(i)) continue;
    box.remove();
    details.delete(i);
  }
  for (const i of state.open.keys()) {
    if (!wanted.has(i)) continue;
    if (!details.has(i)) {
      details.set(i, detailsNode(i));
      element("opened").append(details.get(i));
    }
    details.get(i).style.top = `${state.tops[wanted.get(i)] + HIGH}px`;
  }
}
