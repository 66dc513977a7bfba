// SPDX-License-Identifier: MIT
// The view as one SVG picture in light colours.
const MOST_SAVED = 5000; // rows; few programs show a taller picture

function styleOfPicture() {
  const light = [...document.styleSheets[0].cssRules].find(rule => rule.selectorText === ":root");
  const colours = light.style.cssText;
  const shapes = [...document.styleSheets[0].cssRules].filter(rule => /(^|,)\s*(svg )?\.[a-z]|^svg/.test(rule.selectorText ?? ""));
  return `svg{${colours}}\n${shapes.map(rule => rule.cssText.replaceAll("svg .", ".").replaceAll("svg text", "text")).join("\n")}`;
}

function pictureMake() {
  const wide = TIMES + place.lanes + place.words, view = state.view.slice(0, MOST_SAVED);
  const high = HEAD + view.length * HIGH + HIGH / 2;
  const picture = svgNode("svg", {width: wide, height: high, viewBox: `0 0 ${wide} ${high}`});
  const hatch = element("hatch").cloneNode(true), definitions = svgNode("defs", {});
  definitions.append(hatch);
  picture.append(svgNode("title", {}, data.title), svgNode("style", {}, styleOfPicture()), definitions,
    svgNode("rect", {width: wide, height: high, fill: "#fff"}), ...lanesDraw().children);
  view.forEach((i, position) => {
    const group = svgNode("g", {transform: `translate(0 ${HEAD + position * HIGH})`});
    const arrows = svgNode("g", {transform: `translate(${TIMES} 0)`});
    arrows.append(...rowPicture(i, position, HIGH).children);
    const words = [name(i), texts[rows[i][MEANING]], texts[rows[i][WORDS]]].filter(Boolean).join("  ");
    group.append(svgNode("text", {x: TIMES - 10, y: AXIS + 4, "text-anchor": "end"}, timeText(i, position)), arrows,
      svgNode("text", {x: TIMES + place.lanes + 6, y: AXIS + 4}, cut(words, Math.floor(place.words / 6.6))));
    picture.append(group);
  });
  return new XMLSerializer().serializeToString(picture);
}

function pictureSave() {
  const link = node("a"), address = URL.createObjectURL(new Blob([pictureMake()], {type: "image/svg+xml"}));
  link.href = address;
  link.download = "ladder.svg";
  link.click();
  setTimeout(() => URL.revokeObjectURL(address), 10000);
}
