// SPDX-License-Identifier: MIT
// What happens on what, and the first view.
function hatchMake() {
  const home = svgNode("svg", {width: 0, height: 0, "aria-hidden": "true"});
  const hatch = svgNode("pattern", {id: "hatch", width: 6, height: 6, patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)"});
  hatch.append(svgNode("path", {class: "hatch", d: "M0 0V6"}));
  home.append(hatch);
  document.body.append(home);
}

function buttonsMake() {
  for (const group of ["signals", "events", "calls", "trouble", "sound"]) {
    const [, style, sign] = kinds.find(kind => kind[3] === group), button = node("button");
    const mark = node("span", style, sign);
    mark.setAttribute("aria-hidden", "true");
    button.type = "button";
    button.dataset.group = group;
    button.append(mark, ` ${group}`);
    button.onclick = () => {
      if (!state.hidden.delete(group)) state.hidden.add(group);
      addressWrite();
      addressRead();
      filterApply();
    };
    element("kinds").append(button);
  }
}

function summaryShow() {
  let errors = 0, waits = 0, slowest = 0;
  for (let i = 0; i < rows.length; i++) {
    if (rows[i][KIND] === ERROR) errors++;
    if (blocks(i)) waits++;
    slowest = Math.max(slowest, elapsed(i) ?? 0);
  }
  const count = (number, what) => `${number.toLocaleString("en")} ${what}${number === 1 ? "" : "s"}`;
  const parts = [`${(last / 1e6).toFixed(1)} s from ${new Date(data.begin).toISOString().slice(0, 19).replace("T", " ")} UTC`,
    count(errors, "error"), count(waits, "blocked caller"), `slowest answer ${duration(slowest)}`];
  if (data.lost) parts.push(`${count(data.lost, "message")} lost`);
  if (data.left_out) parts.push(`${count(data.left_out, "message")} left out`);
  element("summary").textContent = parts.join(" \u00b7 ");
}

let is_drawing = false;
function scrolled() {
  if (is_drawing) return;
  is_drawing = true;
  requestAnimationFrame(() => {
    is_drawing = false;
    const seen = seenNow();
    rowsDraw(false, seen);
    mapFrame(seen);
  });
}

function typed() {
  addressWrite();
  filterApply();
}

element("title").textContent = document.title = data.title;
hatchMake();
buttonsMake();
formShow();
summaryShow();
addressRead();
filterApply();
element("scroll").addEventListener("scroll", scrolled, {passive: true});
element("rows").onclick = event => {
  const made = event.target.closest(".row");
  if (!made) return;
  choose(Number(made.id.slice(1)));
  detailsTurn(state.chosen);
};
element("query").oninput = typed;
element("query").onkeydown = queryKey;
element("time").onclick = formNext;
element("theme").onclick = themeTurn;
element("save").onclick = pictureSave;
element("help").onclick = () => element("keys").showModal();
element("map").onclick = mapGo;
document.addEventListener("keydown", keyPressed);
addEventListener("resize", pageDraw);
addEventListener("hashchange", () => { addressRead(); filterApply(); });
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", mapDraw);
addEventListener("beforeprint", () => { rowsForget(); rowsDraw(state.view.length <= MOST_SAVED); });
addEventListener("afterprint", () => { rowsForget(); rowsDraw(false); });
element("rows").focus();
