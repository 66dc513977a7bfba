// SPDX-License-Identifier: MIT
// Choosing rows, and the keys.
function choose(i) {
  const position = state.view.indexOf(i);
  if (position < 0) return;
  const before = state.chosen, scroll = element("scroll");
  state.chosen = i;
  for (const row of [before, i, rows[before]?.[PARTNER], rows[i][PARTNER]]) {
    shown.get(row)?.remove();
    shown.delete(row);
  }
  const top = state.tops[position], bottom = state.tops[position + 1], room = scroll.clientHeight - HEAD;
  if (top < scroll.scrollTop) scroll.scrollTop = Math.max(0, top - 2 * HIGH);
  else if (bottom > scroll.scrollTop + room) scroll.scrollTop = Math.min(top, bottom - room + 2 * HIGH);
  rowsDraw(false);
  element("rows").setAttribute("aria-activedescendant", `m${i}`);
  mapFrame();
}

// The partner of the chosen row; a filter that hides it gives way.
function partnerGo() {
  const partner = rows[state.chosen]?.[PARTNER] ?? -1;
  if (partner < 0) return;
  if (!state.view.includes(partner)) {
    element("query").value = "";
    state.hidden.clear();
    addressWrite();
    addressRead();
    filterApply();
  }
  choose(partner);
}

function troubleGo(on) {
  for (let at = state.view.indexOf(state.chosen) + on; at >= 0 && at < state.view.length; at += on)
    if (isTrouble(state.view[at])) return choose(state.view[at]);
}

function move(by) {
  if (!state.view.length) return;
  const at = Math.min(state.view.length - 1, Math.max(0, state.view.indexOf(state.chosen) + by));
  choose(state.view[at]);
}

function formNext() {
  state.form = (state.form + 1) % 3;
  formShow();
  pageDraw();
}

function formShow() {
  element("time").textContent = `Time: ${["relative", "since the row before", "of day, UTC"][state.form]}`;
}

function themeTurn() {
  const root = document.documentElement;
  const is_dark = root.dataset.theme ? root.dataset.theme === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
  root.dataset.theme = is_dark ? "light" : "dark";
  mapDraw();
}

function queryKey(event) {
  if (event.key === "Escape" && element("query").value) {
    element("query").value = "";
    addressWrite();
    filterApply();
  } else if (event.key === "Escape" || event.key === "Enter" || event.key === "ArrowDown") {
    element("rows").focus();
    if (event.key !== "Escape" && state.chosen < 0) move(1);
  } else {
    return;
  }
  event.preventDefault();
  event.stopPropagation();
}

const actions = {
  ArrowDown: () => move(1), j: () => move(1), ArrowUp: () => move(-1), k: () => move(-1),
  PageDown: () => move(Math.floor(element("scroll").clientHeight / HIGH) - 3),
  PageUp: () => move(3 - Math.floor(element("scroll").clientHeight / HIGH)),
  Home: () => move(-Infinity), End: () => move(Infinity),
  Enter: () => state.chosen >= 0 && detailsTurn(state.chosen), " ": () => state.chosen >= 0 && detailsTurn(state.chosen),
  p: partnerGo, e: () => troubleGo(1), E: () => troubleGo(-1), t: formNext, d: themeTurn,
  "/": () => { element("query").focus(); element("query").select(); },
  Escape: () => { if (element("query").value) { element("query").value = ""; addressWrite(); filterApply(); } },
  "?": () => element("keys").showModal(),
};

function keyPressed(event) {
  const is_typing = event.target.tagName === "INPUT" || (event.target.tagName === "BUTTON" && /^( |Enter)$/.test(event.key));
  const action = Object.hasOwn(actions, event.key) ? actions[event.key] : null;
  if (!action || event.ctrlKey || event.metaKey || event.altKey || element("keys").open || is_typing) return;
  action();
  event.preventDefault();
}
